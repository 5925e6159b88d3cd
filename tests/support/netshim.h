#ifndef TESTS_SUPPORT_NETSHIM_H
#define TESTS_SUPPORT_NETSHIM_H

#include <climits>
#include <map>
#include <string>
#include <sys/socket.h>
#include <utility>
#include <vector>

struct addrinfo;

namespace support {

/* How an address takes a connect. */
enum class net_answer {
    real,  /* the platform decides */
    now,   /* connect itself succeeds or fails */
    later, /* connect is in progress; a wait ends at once, and SO_ERROR has the outcome */
    silent /* connect is in progress, and a wait runs its whole time out, without taking any */
};

struct net_address {
    std::string numeric; /* "127.0.0.1", "::1", or "unix" for an address of a foreign family */
    net_answer answer = net_answer::real;
    int platformerrno = 0; /* the outcome of now and later; 0 for success */
};

/* Stands between the library and the platform's resolver and sockets while it lives; a test that
 * includes this header is linked with functions that take the place of libc's. Unless told
 * otherwise they hand on. While resolve is in force, IPv6 sockets are made as IPv4 ones, so that no
 * test depends on a machine that has IPv6. One at a time, in one thread. */
class net_shim {
  public:
    net_shim();
    ~net_shim();
    net_shim(const net_shim &) = delete;
    net_shim &operator=(const net_shim &) = delete;

    /* Has every name resolve to these addresses. */
    void resolve(std::vector<net_address> addresses);

    /* Changes how one of them answers. */
    void answer(const net_address &address);

    /* Has every lookup fail with a code of the resolver, and errno. A resolver that leaves a list
     * all the same contradicts itself. */
    void resolve_fails(int code, int platformerrno = 0, bool leaveslist = false);

    /* Has a call fail, after so many good ones and for so many times. call is the name of a
     * function, or one of "socket AF_INET", "socket AF_INET6", "fcntl F_GETFL", "fcntl F_SETFL". */
    void fail(const std::string &call, int platformerrno, int skip = 0, int times = INT_MAX);

    /* Gives every datagram this sender, cut off at the room as the platform does it. */
    void send_from(const sockaddr *sender, socklen_t length);

    /* What the library has asked for so far. */
    const std::vector<std::string> &connects() const
    {
        return connects_;
    } /* "[::1]:80" */
    const std::vector<std::pair<int, int>> &sockets() const
    {
        return sockets_;
    } /* domain, type */
    const std::vector<int> &waits() const
    {
        return waits_;
    } /* of poll for scripted ones */
    const std::vector<addrinfo> &lookups() const
    {
        return lookups_;
    } /* the hints */
    int open_lists() const
    {
        return openlists_;
    }

    /* For the functions that take libc's place. */
    bool fails(const std::string &call);
    const net_address *answer_of(int descriptor) const;
    bool lookup(const char *name, const addrinfo *hints, addrinfo **result, int *codeptr);
    bool release(addrinfo *list);
    bool connect(int descriptor, const sockaddr *address, int *resultptr);
    int open(int domain, int type);
    void forget(int descriptor)
    {
        connected_.erase(descriptor);
    }
    void wait(int milliseconds)
    {
        waits_.push_back(milliseconds);
    }
    void cut_sender(sockaddr *room, socklen_t *lengthptr) const;

  private:
    struct failure {
        int platformerrno;
        int skip;
        int times;
    };
    std::map<std::string, failure> failures_;
    std::vector<net_address> addresses_;
    bool resolves_ = false;
    int resolvecode_ = 0;
    int resolveerrno_ = 0;
    bool leaveslist_ = false;
    std::vector<char> sender_;
    std::map<int, std::string> connected_; /* the scripted address of a descriptor */
    std::vector<std::string> connects_;
    std::vector<std::pair<int, int>> sockets_;
    std::vector<int> waits_;
    std::vector<addrinfo> lookups_;
    int openlists_ = 0;
};

/* How many descriptors the process has open. */
int open_descriptors();

} // namespace support

#endif
