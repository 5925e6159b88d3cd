#include "support/tracee.h"

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {

static const int kSyscallStop = SIGTRAP | 0x80;
static const uint64_t kMarker = SYS_getppid; /* made before and after the work */
static const int kStatusBase = 100;          /* an exit code is not negative */
static const int kOtherEnd = -1000;
static const unsigned int kSeconds = 60;

#if defined(__x86_64__) || defined(__i386__)
#ifdef __i386__
#define orig_rax orig_eax
#define rax      eax
#define rdx      edx
#endif

static bool skip_call(pid_t child)
{
    return ptrace(PTRACE_POKEUSER, child, offsetof(user_regs_struct, orig_rax), -1L) == 0;
}

static bool set_result(pid_t child, int64_t result)
{
    return ptrace(PTRACE_POKEUSER, child, offsetof(user_regs_struct, rax), result) == 0;
}

static bool set_length(pid_t child, uint64_t length)
{
    return ptrace(PTRACE_POKEUSER, child, offsetof(user_regs_struct, rdx), length) == 0;
}
#elif defined(__aarch64__)
static bool skip_call(pid_t child)
{
    int number = -1;
    iovec part = {&number, sizeof number};
    return ptrace(PTRACE_SETREGSET, child, NT_ARM_SYSTEM_CALL, &part) == 0;
}

static bool set_register(pid_t child, int index, uint64_t value)
{
    user_regs_struct registers;
    iovec part = {&registers, sizeof registers};
    if (ptrace(PTRACE_GETREGSET, child, NT_PRSTATUS, &part) != 0)
        return false;
    registers.regs[index] = value;
    return ptrace(PTRACE_SETREGSET, child, NT_PRSTATUS, &part) == 0;
}

static bool set_result(pid_t child, int64_t result)
{
    return set_register(child, 0, static_cast<uint64_t>(result));
}

static bool set_length(pid_t child, uint64_t length)
{
    return set_register(child, 2, length);
}
#else
#error "say here where this processor keeps number, third argument and result of a system call"
#endif

static bool concerns_memory(uint64_t number)
{
    switch (number) {
    case SYS_brk:
    case SYS_mmap:
    case SYS_munmap:
    case SYS_mremap:
    case SYS_mprotect:
    case SYS_madvise:
        return true;
    default:
        return false;
    }
}

[[noreturn]] static void child_main(const std::function<int()> &work)
{
    alarm(kSeconds); /* a child that hangs does not hang the test */
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0 || raise(SIGSTOP) != 0)
        _exit(0);
    (void)getppid();
    const int status = work();
    (void)getppid();
    _exit(kStatusBase + status);
}

/* Lets the child run to its next stop at a system call. Returns false when it has ended. */
static bool run_to_syscall_stop(pid_t child, int *statusptr)
{
    int signalnumber = 0;
    for (;;) {
        if (ptrace(PTRACE_SYSCALL, child, nullptr, signalnumber) != 0 ||
            waitpid(child, statusptr, 0) != child || !WIFSTOPPED(*statusptr))
            return false;
        if (WSTOPSIG(*statusptr) == kSyscallStop)
            return true;
        signalnumber = WSTOPSIG(*statusptr);
    }
}

static tracee_result killed_result(pid_t child, size_t calls)
{
    int status = 0;
    EXPECT_EQ(kill(child, SIGKILL), 0);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    return {true, 0, calls};
}

static tracee_result ended_result(int status, size_t calls)
{
    const bool exited = WIFEXITED(status) && WEXITSTATUS(status) != 0;
    EXPECT_TRUE(exited) << "the child ended with wait status " << status;
    return {false, exited ? WEXITSTATUS(status) - kStatusBase : kOtherEnd, calls};
}

/* The child stands before a call. Returns false when it has ended, or was killed as wanted. */
static bool apply_before(pid_t child, const tracee_action &action)
{
    EXPECT_TRUE(action.error == 0 || skip_call(child));
    EXPECT_TRUE(!action.shorten || set_length(child, action.length));
    return !action.killbefore;
}

static tracee_result follow(pid_t child,
                            const std::function<tracee_action(const tracee_call &)> &decide)
{
    int status = 0;
    size_t calls = 0;
    int markers = 0;
    while (run_to_syscall_stop(child, &status)) {
        __ptrace_syscall_info info{};
        EXPECT_GT(ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info), 0);
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            continue;
        if (info.entry.nr == kMarker && ++markers == 2)
            break;
        if (markers == 0 || info.entry.nr == kMarker || concerns_memory(info.entry.nr))
            continue;

        tracee_call call{calls++, info.entry.nr, {}};
        std::copy(info.entry.args, info.entry.args + 6, call.arguments);
        const tracee_action action = decide(call);
        if (!apply_before(child, action))
            return killed_result(child, calls);
        if (action.error == 0 && !action.killafter)
            continue;
        if (!run_to_syscall_stop(child, &status))
            break;
        if (action.killafter)
            return killed_result(child, calls);
        EXPECT_TRUE(set_result(child, -action.error));
    }

    if (WIFSTOPPED(status)) {
        EXPECT_EQ(ptrace(PTRACE_DETACH, child, nullptr, nullptr), 0);
        EXPECT_EQ(waitpid(child, &status, 0), child);
    }
    return ended_result(status, calls);
}

tracee_result vel_tracee_run(const std::function<int()> &work,
                             const std::function<tracee_action(const tracee_call &)> &decide)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        child_main(work);

    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status) ||
        ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
        ADD_FAILURE() << "cannot trace a child";
        return {false, kOtherEnd, 0};
    }
    return follow(child, decide);
}

} // namespace support
