#include <vellib/velcond.h>

#include <pthread.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"

struct velcond {
    pthread_mutex_t mutex;
    pthread_cond_t cond;
};

/* Nothing tells a half-built platform object from a whole one, so destroy is of no use here. */
velcond *vel_cond_create(void)
{
    auto *velcond = static_cast<struct velcond *>(vel_cmalloc(sizeof(struct velcond)));
    if (!velcond)
        return nullptr;
    if (pthread_mutex_init(&velcond->mutex, nullptr) != 0) {
        vel_free(velcond);
        return nullptr;
    }
    if (pthread_cond_init(&velcond->cond, nullptr) != 0) {
        const int res = pthread_mutex_destroy(&velcond->mutex);
        VEL_ASSERT(res == 0);
        vel_free(velcond);
        return nullptr;
    }
    return velcond;
}

void vel_cond_destroy(velcond *velcond)
{
    VEL_ASSERT(velcond != NULL);

    int err = pthread_cond_destroy(&velcond->cond);
    VEL_ASSERT(err == 0);
    err = pthread_mutex_destroy(&velcond->mutex);
    VEL_ASSERT(err == 0);
    vel_free(velcond);
}

int vel_cond_lock(velcond *velcond)
{
    VEL_ASSERT(velcond != NULL);

    const int err = pthread_mutex_lock(&velcond->mutex);
    VEL_ASSERT(err == 0);
    return 0;
}

int vel_cond_unlock(velcond *velcond)
{
    VEL_ASSERT(velcond != NULL);

    const int err = pthread_mutex_unlock(&velcond->mutex);
    VEL_ASSERT(err == 0);
    return 0;
}

int vel_cond_wait(velcond *velcond)
{
    VEL_ASSERT(velcond != NULL);

    const int err = pthread_cond_wait(&velcond->cond, &velcond->mutex);
    VEL_ASSERT(err == 0);
    return 0;
}

int vel_cond_signal(velcond *velcond)
{
    VEL_ASSERT(velcond != NULL);

    const int err = pthread_cond_signal(&velcond->cond);
    VEL_ASSERT(err == 0);
    return 0;
}

int vel_cond_broadcast(velcond *velcond)
{
    VEL_ASSERT(velcond != NULL);

    const int err = pthread_cond_broadcast(&velcond->cond);
    VEL_ASSERT(err == 0);
    return 0;
}
