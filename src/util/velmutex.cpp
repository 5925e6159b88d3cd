#include <vellib/velmutex.h>

#include <pthread.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"

struct velmutex {
    pthread_mutex_t mutex;
};

velmutex *vel_mutex_create(void)
{
    auto *velmutex = static_cast<struct velmutex *>(vel_malloc(sizeof(struct velmutex)));
    if (!velmutex)
        return nullptr;
    if (pthread_mutex_init(&velmutex->mutex, nullptr) != 0) {
        vel_free(velmutex);
        return nullptr;
    }
    return velmutex;
}

void vel_mutex_destroy(velmutex *velmutex)
{
    VEL_ASSERT(velmutex != NULL);

    const int err = pthread_mutex_destroy(&velmutex->mutex);
    VEL_ASSERT(err == 0);
    vel_free(velmutex);
}

int vel_mutex_lock(velmutex *velmutex)
{
    VEL_ASSERT(velmutex != NULL);

    const int err = pthread_mutex_lock(&velmutex->mutex);
    VEL_ASSERT(err == 0);
    return 0;
}

int vel_mutex_unlock(velmutex *velmutex)
{
    VEL_ASSERT(velmutex != NULL);

    const int err = pthread_mutex_unlock(&velmutex->mutex);
    VEL_ASSERT(err == 0);
    return 0;
}
