#include <vellib/veluninit.h>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/velrandom.h>

/* The one place that knows all global state. */
void vel_uninit(void)
{
    vel_log_uninit();
    vel_malloc_uninit();
    vel_random_uninit();
}
