#ifndef TESTS_SUPPORT_PLATFORM_FUNCTION_H
#define TESTS_SUPPORT_PLATFORM_FUNCTION_H

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>

namespace support {

/* Finds the function of the platform behind one of the same name that the program defines itself.
 * Where a sanitizer watches that function it is the sanitizer's, which goes on seeing the calls. */
template <typename Function> Function *platform_function(const char *name)
{
    char interceptor[64];
    snprintf(interceptor, sizeof(interceptor), "__interceptor_%s", name);
    void *found = dlsym(RTLD_DEFAULT, interceptor);
    if (!found)
        found = dlsym(RTLD_NEXT, name);
    if (!found)
        abort();
    return reinterpret_cast<Function *>(found);
}

} // namespace support

#endif
