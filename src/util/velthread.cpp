#include <vellib/velthread.h>

#include <stdint.h>

#include <pthread.h>

#include <vellib/velmalloc.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velthread"

/* What the owner did; the thread itself may have ended long ago. */
enum vel_thread_state : int32_t {
    VEL_THREAD_STATE_NONE = 0,
    VEL_THREAD_STATE_RUNNING = 1,
    VEL_THREAD_STATE_JOINED = 2,
};

struct velthread {
    vel_thread_state state;
    pthread_t thread;
};

velthread *vel_thread_create(void)
{
    auto *velthread = static_cast<struct velthread *>(vel_cmalloc(sizeof(struct velthread)));
    if (!velthread)
        VEL_LOG(7, "not enough memory for thread context");
    return velthread;
}

void vel_thread_destroy(velthread *velthread)
{
    VEL_ASSERT(velthread != NULL);

    vel_free(velthread);
}

int vel_thread_start(velthread *velthread, void *(*start)(void *), void *arg)
{
    VEL_ASSERT(velthread != NULL);
    VEL_ASSERT(velthread->state == VEL_THREAD_STATE_NONE);

    const int logresult = vel_log_init_threaded();
    if (logresult != 0) {
        VEL_LOG(7, "failed to initialize threaded logging");
        return logresult;
    }

    velthread->state = VEL_THREAD_STATE_RUNNING;
    const int err = pthread_create(&velthread->thread, nullptr, start, arg);
    if (err != 0) {
        VEL_LOG(7, "pthread_create() returned error %d", err);
        velthread->state = VEL_THREAD_STATE_NONE;
    }
    return err;
}

int vel_thread_join(velthread *velthread, void **returnptr)
{
    VEL_ASSERT(velthread != NULL);
    VEL_ASSERT(velthread->state == VEL_THREAD_STATE_RUNNING);

    const int err = pthread_join(velthread->thread, returnptr);
    if (err != 0) {
        VEL_LOG(7, "pthread_join() returned error %d", err);
        return err;
    }
    velthread->state = VEL_THREAD_STATE_JOINED;
    return 0;
}
