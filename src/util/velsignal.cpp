#include <vellib/velsignal.h>

#include <signal.h>

#include "util/velassert.h"
#include "util/velsignal_internal.h"

vel_signal_row vel_signal_table[VEL_SIGNAL_COUNT];

void vel_signal_handler(int velsignal, int platformsignal)
{
    VEL_ASSERT(velsignal > VEL_SIGNAL_NONE);
    VEL_ASSERT(velsignal < VEL_SIGNAL_COUNT);

    const vel_signal_row *row = &vel_signal_table[velsignal];
    if (row->callback)
        row->callback(platformsignal, row->context);
}

/* One handler a signal, so that a handler knows its row without a look at what was delivered. */
template <int velsignal> static void vel_signal_handle(int platformsignal)
{
    vel_signal_handler(velsignal, platformsignal);
}

struct vel_signal_mapping {
    int velsignal;
    int platformsignal;
    void (*handler)(int);
};

static constexpr vel_signal_mapping vel_signal_mappings[] = {
    {VEL_SIGNAL_SIGINT, SIGINT, vel_signal_handle<VEL_SIGNAL_SIGINT>},
    {VEL_SIGNAL_SIGTERM, SIGTERM, vel_signal_handle<VEL_SIGNAL_SIGTERM>},
};

static const vel_signal_mapping *vel_signal_find(int velsignal)
{
    for (const vel_signal_mapping &mapping : vel_signal_mappings) {
        if (mapping.velsignal == velsignal)
            return &mapping;
    }
    return nullptr;
}

int vel_signal_register(int velsignal, vel_signal_cb *callback, void *context)
{
    VEL_ASSERT(velsignal > VEL_SIGNAL_NONE);
    VEL_ASSERT(velsignal < VEL_SIGNAL_COUNT);

    const vel_signal_mapping *mapping = vel_signal_find(velsignal);
    if (!mapping)
        return -1;

    /* The row is complete before the first signal can look at it. */
    vel_signal_row *row = &vel_signal_table[velsignal];
    row->callback = callback;
    row->context = context;
    if (signal(mapping->platformsignal, callback ? mapping->handler : SIG_DFL) == SIG_ERR) {
        row->callback = nullptr;
        row->context = nullptr;
        return -1;
    }
    return 0;
}

int vel_signal_ignore(int velsignal)
{
    VEL_ASSERT(velsignal > VEL_SIGNAL_NONE);
    VEL_ASSERT(velsignal < VEL_SIGNAL_COUNT);

    if (velsignal != VEL_SIGNAL_SIGPIPE)
        return -1;
    return signal(SIGPIPE, SIG_IGN) == SIG_ERR ? -1 : 0;
}

int vel_signal_register_sigint(vel_signal_cb *callback, void *context)
{
    return vel_signal_register(VEL_SIGNAL_SIGINT, callback, context);
}

int vel_signal_register_sigterm(vel_signal_cb *callback, void *context)
{
    return vel_signal_register(VEL_SIGNAL_SIGTERM, callback, context);
}

int vel_signal_ignore_sigpipe(void)
{
    return vel_signal_ignore(VEL_SIGNAL_SIGPIPE);
}
