#include <vellib/velrwlock.h>

#include <pthread.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"

struct velrwlock {
    pthread_rwlock_t rwlock;
};

velrwlock *vel_rwlock_create(void)
{
    auto *velrwlock = static_cast<struct velrwlock *>(vel_cmalloc(sizeof(struct velrwlock)));
    if (!velrwlock)
        return nullptr;
    if (pthread_rwlock_init(&velrwlock->rwlock, nullptr) != 0) {
        vel_free(velrwlock);
        return nullptr;
    }
    return velrwlock;
}

void vel_rwlock_destroy(velrwlock *velrwlock)
{
    VEL_ASSERT(velrwlock != NULL);

    const int err = pthread_rwlock_destroy(&velrwlock->rwlock);
    VEL_ASSERT(err == 0);
    vel_free(velrwlock);
}

int vel_rwlock_rdlock(velrwlock *velrwlock)
{
    VEL_ASSERT(velrwlock != NULL);

    const int err = pthread_rwlock_rdlock(&velrwlock->rwlock);
    VEL_ASSERT(err == 0);
    return 0;
}

int vel_rwlock_wrlock(velrwlock *velrwlock)
{
    VEL_ASSERT(velrwlock != NULL);

    const int err = pthread_rwlock_wrlock(&velrwlock->rwlock);
    VEL_ASSERT(err == 0);
    return 0;
}

int vel_rwlock_unlock(velrwlock *velrwlock)
{
    VEL_ASSERT(velrwlock != NULL);

    const int err = pthread_rwlock_unlock(&velrwlock->rwlock);
    VEL_ASSERT(err == 0);
    return 0;
}
