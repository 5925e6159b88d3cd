#ifndef TESTS_SUPPORT_TRACEE_H
#define TESTS_SUPPORT_TRACEE_H

#include <cstddef>
#include <cstdint>
#include <functional>

namespace support {

/* A system call that a child is about to make. */
struct tracee_call {
    size_t index;    /* 0 for the first one of the work */
    uint64_t number; /* SYS_write and so on */
    uint64_t arguments[6];
};

/* What becomes of that call. The default lets it pass. */
struct tracee_action {
    bool killbefore = false; /* kill the child, without the call being made */
    bool killafter = false;  /* let the call be made, and kill the child before it learns of that */
    int error = 0;           /* do not make the call, and have it fail with this errno */
    bool shorten = false;    /* make the call with length as its third argument ... */
    uint64_t length = 0;     /* ... so that less is written than was asked for */
};

struct tracee_result {
    bool killed; /* as an action wanted it */
    int status;  /* otherwise: what the work returned, or -1000 if the child ended in another way */
    size_t calls; /* how many were decided on */
};

/* Does the work in a child and has every system call that it makes decided on. What gets and gives
 * back memory passes unseen, as a sanitizer maps much of its own, and failing allocations have a
 * test of their own. The child ends without any clean-up: no leak check, no atexit. */
tracee_result vel_tracee_run(const std::function<int()> &work,
                             const std::function<tracee_action(const tracee_call &)> &decide);

} // namespace support

#endif
