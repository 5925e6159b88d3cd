#include <vellib/vellibrary.h>

#include <dlfcn.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/vellibrary"

struct vellibrary {
    void *handle; /* the platform's */
};

vellibrary *vel_library_create(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    auto *vellibrary = static_cast<struct vellibrary *>(vel_cmalloc(sizeof(struct vellibrary)));
    if (!vellibrary)
        return nullptr;
    vellibrary->handle = dlopen(filename, RTLD_NOW);
    if (!vellibrary->handle) {
        VEL_LOG(13, "dlopen() for '%s' failed, error %s", filename, dlerror());
        vel_free(vellibrary);
        return nullptr;
    }
    return vellibrary;
}

void vel_library_destroy(vellibrary *vellibrary)
{
    VEL_ASSERT(vellibrary != NULL);
    VEL_ASSERT(vellibrary->handle != NULL);

    (void)dlclose(vellibrary->handle);
    vel_free(vellibrary);
}

vel_library_entry *vel_library_function(vellibrary *vellibrary, const char *symbol)
{
    VEL_ASSERT(vellibrary != NULL);
    VEL_ASSERT(symbol != NULL);
    VEL_ASSERT(vellibrary->handle != NULL);

    return reinterpret_cast<vel_library_entry *>(dlsym(vellibrary->handle, symbol));
}

void *vel_library_data(vellibrary *vellibrary, const char *symbol)
{
    VEL_ASSERT(vellibrary != NULL);
    VEL_ASSERT(symbol != NULL);
    VEL_ASSERT(vellibrary->handle != NULL);

    return dlsym(vellibrary->handle, symbol);
}
