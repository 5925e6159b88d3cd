#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {

/* What became of a child process. */
struct child_result {
    bool completed; /* the body came to its end, nothing expected in it failed, nothing leaked */
    int signal;     /* that ended it, or 0 */
    std::string out;
    std::string err;
};

/* For a message when a child was expected to complete. */
inline std::ostream &operator<<(std::ostream &stream, const child_result &result)
{
    return stream << "signal " << result.signal << "\n" << result.out << result.err;
}

inline std::string read_memfd(int fd)
{
    std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    if (pread(fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        abort();
    close(fd);
    return text;
}

/* Runs the body in a process of its own, for what the library keeps once a process, and collects
 * what it prints. The body may use EXPECT_ macros. The process is a copy of this one: a test that
 * uses this keeps the state it is about untouched in the process it starts from. */
inline child_result run_child(const std::function<void()> &body)
{
    const int out = memfd_create("out", 0);
    const int err = memfd_create("err", 0);

    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        body();
        exit(testing::Test::HasFailure() ? 1 : 0); /* looks for leaks */
    }
    int status = -1;
    if (waitpid(pid, &status, 0) != pid)
        abort();
    return {WIFEXITED(status) && WEXITSTATUS(status) == 0,
            WIFSIGNALED(status) ? WTERMSIG(status) : 0, read_memfd(out), read_memfd(err)};
}

} // namespace support

#endif
