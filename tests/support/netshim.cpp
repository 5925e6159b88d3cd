/* What is defined here must not be an inline function of the headers already. */
#undef _FORTIFY_SOURCE

#include "support/netshim.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {

static net_shim *active;

/* One entry of a list that the shim hands out. */
struct list_entry {
    addrinfo info;
    sockaddr_storage address;
};

net_shim::net_shim()
{
    EXPECT_EQ(active, nullptr);
    active = this;
}

net_shim::~net_shim()
{
    active = nullptr;
}

void net_shim::resolve(std::vector<net_address> addresses)
{
    addresses_ = std::move(addresses);
    resolves_ = true;
    resolvecode_ = 0;
}

void net_shim::answer(const net_address &address)
{
    for (net_address &known : addresses_) {
        if (known.numeric == address.numeric)
            known = address;
    }
}

void net_shim::resolve_fails(int code, int platformerrno, bool leaveslist)
{
    resolves_ = true;
    leaveslist_ = leaveslist;
    resolvecode_ = code;
    resolveerrno_ = platformerrno;
}

void net_shim::fail(const std::string &call, int platformerrno, int skip, int times)
{
    failures_[call] = {platformerrno, skip, times};
}

void net_shim::send_from(const sockaddr *sender, socklen_t length)
{
    const char *bytes = reinterpret_cast<const char *>(sender);
    sender_.assign(bytes, bytes + length);
}

bool net_shim::fails(const std::string &call)
{
    auto found = failures_.find(call);
    if (found == failures_.end())
        return false;
    failure &failure = found->second;
    if (failure.skip > 0) {
        failure.skip--;
        return false;
    }
    if (failure.times == 0)
        return false;
    failure.times--;
    errno = failure.platformerrno;
    return true;
}

const net_address *net_shim::answer_of(int descriptor) const
{
    auto found = connected_.find(descriptor);
    if (found == connected_.end())
        return nullptr;
    for (const net_address &address : addresses_) {
        if (address.numeric == found->second)
            return &address;
    }
    return nullptr;
}

static void fill_entry(list_entry *entry, const net_address &address, const addrinfo *hints)
{
    auto *inet = reinterpret_cast<sockaddr_in *>(&entry->address);
    auto *inet6 = reinterpret_cast<sockaddr_in6 *>(&entry->address);
    if (address.numeric == "unix") {
        entry->address.ss_family = AF_UNIX;
        entry->info.ai_addrlen = sizeof(sa_family_t);
    } else if (inet_pton(AF_INET, address.numeric.c_str(), &inet->sin_addr) == 1) {
        entry->address.ss_family = AF_INET;
        entry->info.ai_addrlen = sizeof *inet;
    } else {
        EXPECT_EQ(inet_pton(AF_INET6, address.numeric.c_str(), &inet6->sin6_addr), 1);
        entry->address.ss_family = AF_INET6;
        entry->info.ai_addrlen = sizeof *inet6;
    }
    entry->info.ai_family = entry->address.ss_family;
    entry->info.ai_socktype = hints->ai_socktype;
    entry->info.ai_protocol = hints->ai_protocol;
    entry->info.ai_addr = reinterpret_cast<sockaddr *>(&entry->address);
}

bool net_shim::lookup(const char *, const addrinfo *hints, addrinfo **result, int *codeptr)
{
    lookups_.push_back(*hints);
    if (!resolves_)
        return false;
    *codeptr = resolvecode_;
    errno = resolveerrno_;
    if (resolvecode_ != 0 && !leaveslist_)
        return true;
    addrinfo **link = result;
    for (const net_address &address : addresses_) {
        auto *entry = new list_entry{};
        fill_entry(entry, address, hints);
        *link = &entry->info;
        link = &entry->info.ai_next;
    }
    openlists_++;
    return true;
}

bool net_shim::release(addrinfo *list)
{
    if (openlists_ == 0)
        return false;
    openlists_--;
    while (list) {
        addrinfo *next = list->ai_next;
        delete reinterpret_cast<list_entry *>(list);
        list = next;
    }
    return true;
}

static std::string numeric_text(const sockaddr *address)
{
    char text[INET6_ADDRSTRLEN] = "";
    if (address->sa_family == AF_INET6)
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr, text,
                  sizeof text);
    else
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, text,
                  sizeof text);
    return text;
}

bool net_shim::connect(int descriptor, const sockaddr *address, int *resultptr)
{
    const std::string numeric = numeric_text(address);
    const bool inet6 = address->sa_family == AF_INET6;
    const int port = ntohs(inet6 ? reinterpret_cast<const sockaddr_in6 *>(address)->sin6_port
                                 : reinterpret_cast<const sockaddr_in *>(address)->sin_port);
    connects_.push_back((inet6 ? "[" + numeric + "]" : numeric) + ":" + std::to_string(port));
    connected_[descriptor] = numeric;

    const net_address *answer = answer_of(descriptor);
    if (!answer || answer->answer == net_answer::real)
        return false;
    errno = answer->answer == net_answer::now ? answer->platformerrno : EINPROGRESS;
    *resultptr = errno == 0 ? 0 : -1;
    return true;
}

int net_shim::open(int domain, int type)
{
    sockets_.emplace_back(domain, type);
    return domain == AF_INET6 && resolves_ ? AF_INET : domain;
}

void net_shim::cut_sender(sockaddr *room, socklen_t *lengthptr) const
{
    if (sender_.empty())
        return;
    memcpy(room, sender_.data(), std::min<size_t>(*lengthptr, sender_.size()));
    *lengthptr = static_cast<socklen_t>(sender_.size());
}

int open_descriptors()
{
    DIR *directory = opendir("/proc/self/fd");
    EXPECT_NE(directory, nullptr);
    int count = 0;
    while (readdir(directory))
        count++;
    closedir(directory);
    return count;
}

} // namespace support

using support::active;
using support::net_address;
using support::net_answer;

/* The function that would have been called. */
#define NEXT(name)                                                                                 \
    ([]() {                                                                                        \
        static const auto next = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name));       \
        return next;                                                                               \
    }())

#define FAILS(call) (active && active->fails(call))

int getaddrinfo(const char *name, const char *service, const addrinfo *hints, addrinfo **result)
{
    int code = 0;
    if (active && active->lookup(name, hints, result, &code))
        return code;
    return NEXT(getaddrinfo)(name, service, hints, result);
}

void freeaddrinfo(addrinfo *list) noexcept
{
    if (!active || !active->release(list))
        NEXT(freeaddrinfo)(list);
}

int socket(int domain, int type, int protocol) noexcept
{
    if (FAILS("socket") || (domain == AF_INET && FAILS("socket AF_INET")) ||
        (domain == AF_INET6 && FAILS("socket AF_INET6")))
        return -1;
    int descriptor = NEXT(socket)(active ? active->open(domain, type) : domain, type, protocol);
    if (active)
        active->forget(descriptor);
    return descriptor;
}

int fcntl(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if ((command == F_GETFL && FAILS("fcntl F_GETFL")) ||
        (command == F_SETFL && FAILS("fcntl F_SETFL")))
        return -1;
    return NEXT(fcntl)(descriptor, command, argument);
}

int connect(int descriptor, const sockaddr *address, socklen_t length)
{
    int result = 0;
    if (active && active->connect(descriptor, address, &result))
        return result;
    return NEXT(connect)(descriptor, address, length);
}

/* The declaration of glibc tells g++ that poll writes to the set and does not read it. */
#ifndef __clang__
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
int poll(pollfd *set, nfds_t count, int milliseconds)
{
    if (FAILS("poll"))
        return -1;
    const net_address *answer =
        active && count == 1 && set->events == POLLOUT ? active->answer_of(set->fd) : nullptr;
    if (!answer || answer->answer == net_answer::real)
        return NEXT(poll)(set, count, milliseconds);

    active->wait(milliseconds);
    if (answer->answer == net_answer::silent) {
        EXPECT_GE(milliseconds, 0) << "this wait would never end";
        return 0;
    }
    set->revents = POLLOUT;
    return 1;
}

int getsockopt(int descriptor, int level, int option, void *value, socklen_t *length) noexcept
{
    if (FAILS("getsockopt"))
        return -1;
    const net_address *answer = active ? active->answer_of(descriptor) : nullptr;
    if (!answer || answer->answer == net_answer::real)
        return NEXT(getsockopt)(descriptor, level, option, value, length);
    EXPECT_EQ(level, SOL_SOCKET);
    EXPECT_EQ(option, SO_ERROR);
    memcpy(value, &answer->platformerrno, sizeof(int));
    return 0;
}

ssize_t recvfrom(int descriptor, void *buffer, size_t size, int flags, sockaddr *sender,
                 socklen_t *length)
{
    if (FAILS("recvfrom"))
        return -1;
    ssize_t count = NEXT(recvfrom)(descriptor, buffer, size, flags, sender, length);
    if (count >= 0 && active)
        active->cut_sender(sender, length);
    return count;
}

ssize_t send(int descriptor, const void *buffer, size_t size, int flags)
{
    return FAILS("send") ? -1 : NEXT(send)(descriptor, buffer, size, flags);
}

ssize_t sendto(int descriptor, const void *buffer, size_t size, int flags, const sockaddr *to,
               socklen_t length)
{
    return FAILS("sendto") ? -1 : NEXT(sendto)(descriptor, buffer, size, flags, to, length);
}

ssize_t read(int descriptor, void *buffer, size_t size)
{
    return FAILS("read") ? -1 : NEXT(read)(descriptor, buffer, size);
}

ssize_t write(int descriptor, const void *buffer, size_t size)
{
    return FAILS("write") ? -1 : NEXT(write)(descriptor, buffer, size);
}

int bind(int descriptor, const sockaddr *address, socklen_t length) noexcept
{
    return FAILS("bind") ? -1 : NEXT(bind)(descriptor, address, length);
}

int listen(int descriptor, int backlog) noexcept
{
    return FAILS("listen") ? -1 : NEXT(listen)(descriptor, backlog);
}

int accept(int descriptor, sockaddr *address, socklen_t *length)
{
    return FAILS("accept") ? -1 : NEXT(accept)(descriptor, address, length);
}

int getsockname(int descriptor, sockaddr *address, socklen_t *length) noexcept
{
    return FAILS("getsockname") ? -1 : NEXT(getsockname)(descriptor, address, length);
}

int getpeername(int descriptor, sockaddr *address, socklen_t *length) noexcept
{
    return FAILS("getpeername") ? -1 : NEXT(getpeername)(descriptor, address, length);
}

int setsockopt(int descriptor, int level, int option, const void *value, socklen_t length) noexcept
{
    return FAILS("setsockopt") ? -1 : NEXT(setsockopt)(descriptor, level, option, value, length);
}

int pipe(int ends[2]) noexcept
{
    return FAILS("pipe") ? -1 : NEXT(pipe)(ends);
}
