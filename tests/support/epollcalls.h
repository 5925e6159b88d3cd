#ifndef TESTS_SUPPORT_EPOLLCALLS_H
#define TESTS_SUPPORT_EPOLLCALLS_H

/* Defines the platform's calls of event queues for the whole program, so that they can be made to
 * fail. Include this in one source of a program. */

#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <poll.h>
#include <string>
#include <sys/epoll.h>
#include <vector>

#include "support/platform_function.h"

namespace support {

/* Makes calls of one kind fail while it lives: "create", "change" or "wait". The first ones may
 * pass. One at a time. */
class epoll_failure {
  public:
    epoll_failure(const std::string &kind, int platformerrno, int skip = 0, int times = INT_MAX)
        : kind_(kind), platformerrno_(platformerrno), skip_(skip), times_(times)
    {
        active_ = this;
    }
    ~epoll_failure()
    {
        active_ = nullptr;
    }
    epoll_failure(const epoll_failure &) = delete;
    epoll_failure &operator=(const epoll_failure &) = delete;

    int failed() const
    {
        return failed_;
    }

    static bool fails(const char *kind)
    {
        if (!active_ || active_->kind_ != kind)
            return false;
        if (active_->skip_ > 0) {
            active_->skip_--;
            return false;
        }
        if (active_->failed_ == active_->times_)
            return false;
        active_->failed_++;
        errno = active_->platformerrno_;
        return true;
    }

  private:
    static inline epoll_failure *active_;
    const std::string kind_;
    const int platformerrno_;
    int skip_;
    const int times_;
    int failed_ = 0;
};

inline int epoll_changes; /* so often was epoll_ctl called */

} // namespace support

#define SUPPORT_EPOLL(kind, name, types, ...)                                                      \
    do {                                                                                           \
        static const auto next = support::platform_function<int types>(#name);                     \
        return support::epoll_failure::fails(kind) ? -1 : next(__VA_ARGS__);                       \
    } while (0)

int epoll_create(int size) noexcept
{
    SUPPORT_EPOLL("create", epoll_create, (int), size);
}

int epoll_create1(int flags) noexcept
{
    SUPPORT_EPOLL("create", epoll_create1, (int), flags);
}

int epoll_ctl(int queue, int change, int descriptor, epoll_event *event) noexcept
{
    support::epoll_changes++;
    SUPPORT_EPOLL("change", epoll_ctl, (int, int, int, epoll_event *), queue, change, descriptor,
                  event);
}

int epoll_wait(int queue, epoll_event *events, int room, int milliseconds)
{
    SUPPORT_EPOLL("wait", epoll_wait, (int, epoll_event *, int, int), queue, events, room,
                  milliseconds);
}

int epoll_pwait(int queue, epoll_event *events, int room, int milliseconds, const sigset_t *signals)
{
    SUPPORT_EPOLL("wait", epoll_pwait, (int, epoll_event *, int, int, const sigset_t *), queue,
                  events, room, milliseconds, signals);
}

/* Not every libc declares it. */
int epoll_pwait2(int queue, epoll_event *events, int room, const timespec *time,
                 const sigset_t *signals);

int epoll_pwait2(int queue, epoll_event *events, int room, const timespec *time,
                 const sigset_t *signals)
{
    SUPPORT_EPOLL("wait", epoll_pwait2,
                  (int, epoll_event *, int, const timespec *, const sigset_t *), queue, events,
                  room, time, signals);
}

int poll(pollfd *set, nfds_t count, int milliseconds)
{
    SUPPORT_EPOLL("wait", poll, (pollfd *, nfds_t, int), set, count, milliseconds);
}

#endif
