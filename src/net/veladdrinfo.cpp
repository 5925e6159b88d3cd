#include <vellib/veladdrinfo.h>

#include <cerrno>
#include <netdb.h>
#include <netinet/in.h>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "net/veladdrinfo"

struct veladdrinfo {
    char *hostname;            /* owned */
    int udp;                   /* 1: datagram sockets and UDP in the hints */
    int numerichost;           /* 1: hostname must be a numeric address */
    struct addrinfo *addrinfo; /* owned, NULL until a lookup succeeds; never replaced */
    struct addrinfo *current;  /* in addrinfo: what the next call hands out, NULL past the end */
};

struct vel_addrinfo_failure {
    int code; /* of the resolver */
    vel_error_t velerror;
    const char *text;
};

/* -9 and -5 are numbers because their names, EAI_ADDRFAMILY and EAI_NODATA, are no part of POSIX:
 * a platform that numbers them otherwise has them end as unknown. EAI_NONAME means two things and
 * stands in vel_addrinfo_map_error. */
static constexpr vel_addrinfo_failure vel_addrinfo_failures[] = {
    {-9, VEL_ERROR_NO_ADDRESSES_IN_FAMILY,
     "EAI_ADDRFAMILY; no network addresses in requested family"},
    {-5, VEL_ERROR_NOT_FOUND, "EAI_NODATA; no network addresses defined"},
    {EAI_AGAIN, VEL_ERROR_TEMPORARY_FAILURE, "EAI_AGAIN; temporary failure in name resolution"},
    {EAI_BADFLAGS, VEL_ERROR_INVALID_ARGUMENT, "EAI_BADFLAGS; invalid value for ai_flags provided"},
    {EAI_FAIL, VEL_ERROR_PERMANENT_FAILURE, "EAI_FAIL; permanent failure in name resolution"},
    {EAI_FAMILY, VEL_ERROR_UNSUPPORTED, "EAI_FAMILY; unsupported ai_family"},
    {EAI_MEMORY, VEL_ERROR_NO_MEMORY, "EAI_MEMORY; not enough memory"},
    {EAI_SERVICE, VEL_ERROR_UNSUPPORTED, "EAI_SERVICE; service is not supported for ai_socktype"},
    {EAI_SOCKTYPE, VEL_ERROR_UNSUPPORTED, "EAI_SOCKTYPE; specified ai_socktype is not supported"},
    {EAI_SYSTEM, VEL_ERROR_GENERIC, "EAI_SYSTEM; other system error occurred"},
};

/* Translates a code of the resolver, which has just failed: errno is still the resolver's. */
static vel_error_t vel_addrinfo_map_error(const struct veladdrinfo *veladdrinfo, int code,
                                          const char **textptr)
{
    const int platformerrno = errno;

    VEL_ASSERT(veladdrinfo != NULL);

    if (code == EAI_NONAME && veladdrinfo->numerichost) {
        *textptr = "EAI_NONAME; numeric hostname could not be converted";
        return VEL_ERROR_INVALID_SYNTAX;
    }
    if (code == EAI_NONAME) {
        *textptr = "EAI_NONAME; name does not resolve";
        return VEL_ERROR_HOST_UNRESOLVED;
    }
    for (const vel_addrinfo_failure &failure : vel_addrinfo_failures) {
        if (failure.code != code)
            continue;
        if (code == EAI_SYSTEM)
            VEL_LOG(6, "system error occurred in getaddrinfo(), errno %d", platformerrno);
        *textptr = failure.text;
        return failure.velerror;
    }
    VEL_LOG(6, "unsupported error code %d from getaddrinfo() call", code);
    *textptr = "unknown error";
    return VEL_ERROR_GENERIC;
}

static void vel_addrinfo_generate_hints(struct addrinfo *hints, int protocol)
{
    VEL_ASSERT(hints != NULL);

    *hints = {};
    hints->ai_flags = AI_ADDRCONFIG | AI_V4MAPPED;
    hints->ai_family = AF_UNSPEC;
    hints->ai_protocol = protocol;
    switch (protocol) {
    case IPPROTO_TCP:
        hints->ai_socktype = SOCK_STREAM;
        break;
    case IPPROTO_UDP:
        hints->ai_socktype = SOCK_DGRAM;
        break;
    default:
        VEL_LOG(8, "unsupported protocol %d", protocol);
        break;
    }
}

static vel_error_t vel_addrinfo_getaddrinfo(struct veladdrinfo *veladdrinfo)
{
    struct addrinfo hints;
    vel_addrinfo_generate_hints(&hints, veladdrinfo->udp ? IPPROTO_UDP : IPPROTO_TCP);
    if (veladdrinfo->numerichost)
        hints.ai_flags |= AI_NUMERICHOST;

    int code = getaddrinfo(veladdrinfo->hostname, nullptr, &hints, &veladdrinfo->addrinfo);
    if (code != 0) {
        const char *text;
        vel_error_t velerror = vel_addrinfo_map_error(veladdrinfo, code, &text);
        VEL_LOG(7, "getaddrinfo() returned error %d (%s)", code, text);
        VEL_ASSERT(veladdrinfo->addrinfo == NULL);
        return velerror;
    }
    VEL_ASSERT(veladdrinfo->addrinfo != NULL);
    veladdrinfo->current = veladdrinfo->addrinfo;
    return VEL_ERROR_NONE;
}

veladdrinfo *vel_addrinfo_create(const char *hostname)
{
    VEL_ASSERT(hostname != NULL);

    auto *veladdrinfo = static_cast<struct veladdrinfo *>(vel_cmalloc(sizeof(struct veladdrinfo)));
    if (!veladdrinfo) {
        VEL_LOG(7, "not enough memory for veladdrinfo structure");
        return nullptr;
    }
    veladdrinfo->hostname = vel_strdup(hostname);
    if (!veladdrinfo->hostname) {
        VEL_LOG(7, "not enough memory for host name");
        vel_addrinfo_destroy(veladdrinfo);
        return nullptr;
    }
    return veladdrinfo;
}

void vel_addrinfo_destroy(veladdrinfo *veladdrinfo)
{
    VEL_ASSERT(veladdrinfo != NULL);

    if (veladdrinfo->addrinfo)
        freeaddrinfo(veladdrinfo->addrinfo);
    if (veladdrinfo->hostname)
        vel_free(veladdrinfo->hostname);
    vel_free(veladdrinfo);
}

void vel_addrinfo_set_udp(veladdrinfo *veladdrinfo)
{
    VEL_ASSERT(veladdrinfo != NULL);
    veladdrinfo->udp = 1;
}

void vel_addrinfo_set_numerichost(veladdrinfo *veladdrinfo)
{
    VEL_ASSERT(veladdrinfo != NULL);
    veladdrinfo->numerichost = 1;
}

vel_error_t vel_addrinfo_get_next(veladdrinfo *veladdrinfo, struct sockaddr **sockaddrptr,
                                  socklen_t *socklenptr)
{
    VEL_ASSERT(veladdrinfo != NULL);
    VEL_ASSERT(sockaddrptr != NULL);
    VEL_ASSERT(socklenptr != NULL);

    *sockaddrptr = nullptr;
    *socklenptr = 0;

    if (!veladdrinfo->addrinfo) {
        vel_error_t velerror = vel_addrinfo_getaddrinfo(veladdrinfo);
        if (velerror != VEL_ERROR_NONE)
            return velerror;
        VEL_ASSERT(veladdrinfo->current != NULL);
    }
    if (!veladdrinfo->current)
        return VEL_ERROR_END_OF_FILE;

    *sockaddrptr = veladdrinfo->current->ai_addr;
    *socklenptr = veladdrinfo->current->ai_addrlen;
    veladdrinfo->current = veladdrinfo->current->ai_next;
    return VEL_ERROR_NONE;
}
