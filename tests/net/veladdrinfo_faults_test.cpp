/* Every failure of the resolver, made up by the test. */

#include <cerrno>
#include <netdb.h>
#include <ostream>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include <vellib/veladdrinfo.h>

#include "support/netfixture.h"

using support::log_lines;

namespace {

struct resolver_case {
    const char *name;
    int code;
    bool numeric;
    vel_error_t result;
    const char *text;
    const char *before; /* the line that comes before the one that all have, or NULL */
};

std::ostream &operator<<(std::ostream &out, const resolver_case &row)
{
    return out << row.name;
}

const resolver_case kCases[] = {
    {"Addrfamily", -9, false, VEL_ERROR_NO_ADDRESSES_IN_FAMILY,
     "EAI_ADDRFAMILY; no network addresses in requested family", nullptr},
    {"Nodata", -5, false, VEL_ERROR_NOT_FOUND, "EAI_NODATA; no network addresses defined", nullptr},
    {"Again", EAI_AGAIN, false, VEL_ERROR_TEMPORARY_FAILURE,
     "EAI_AGAIN; temporary failure in name resolution", nullptr},
    {"Badflags", EAI_BADFLAGS, false, VEL_ERROR_INVALID_ARGUMENT,
     "EAI_BADFLAGS; invalid value for ai_flags provided", nullptr},
    {"Fail", EAI_FAIL, false, VEL_ERROR_PERMANENT_FAILURE,
     "EAI_FAIL; permanent failure in name resolution", nullptr},
    {"Family", EAI_FAMILY, false, VEL_ERROR_UNSUPPORTED, "EAI_FAMILY; unsupported ai_family",
     nullptr},
    {"Memory", EAI_MEMORY, false, VEL_ERROR_NO_MEMORY, "EAI_MEMORY; not enough memory", nullptr},
    {"NonameNumeric", EAI_NONAME, true, VEL_ERROR_INVALID_SYNTAX,
     "EAI_NONAME; numeric hostname could not be converted", nullptr},
    {"Noname", EAI_NONAME, false, VEL_ERROR_HOST_UNRESOLVED, "EAI_NONAME; name does not resolve",
     nullptr},
    {"Service", EAI_SERVICE, false, VEL_ERROR_UNSUPPORTED,
     "EAI_SERVICE; service is not supported for ai_socktype", nullptr},
    {"Socktype", EAI_SOCKTYPE, false, VEL_ERROR_UNSUPPORTED,
     "EAI_SOCKTYPE; specified ai_socktype is not supported", nullptr},
    {"System", EAI_SYSTEM, false, VEL_ERROR_GENERIC, "EAI_SYSTEM; other system error occurred",
     "system error occurred in getaddrinfo(), errno 24"},
    {"Unknown", 77, false, VEL_ERROR_GENERIC, "unknown error",
     "unsupported error code 77 from getaddrinfo() call"},
};

class VeladdrinfoFailureCase : public support::net_test,
                               public testing::WithParamInterface<resolver_case> {};

TEST_P(VeladdrinfoFailureCase, TheNextCallLooksUpAnew)
{
    const resolver_case &row = GetParam();
    veladdrinfo *veladdrinfo = vel_addrinfo_create("host");
    ASSERT_NE(veladdrinfo, nullptr);
    if (row.numeric)
        vel_addrinfo_set_numerichost(veladdrinfo);

    struct sockaddr dirt;
    struct sockaddr *sockaddr = &dirt;
    socklen_t length = 99;
    shim_.resolve_fails(row.code, EMFILE);
    EXPECT_EQ(vel_addrinfo_get_next(veladdrinfo, &sockaddr, &length), row.result);
    EXPECT_EQ(sockaddr, nullptr);
    EXPECT_EQ(length, 0u);
    log_lines logged;
    if (row.before)
        logged.push_back({"net/veladdrinfo", 6, row.before});
    logged.push_back(
        {"net/veladdrinfo", 7,
         "getaddrinfo() returned error " + std::to_string(row.code) + " (" + row.text + ")"});
    EXPECT_EQ(log_.take(), logged);

    shim_.resolve({{"127.0.0.1"}});
    EXPECT_EQ(vel_addrinfo_get_next(veladdrinfo, &sockaddr, &length), VEL_ERROR_NONE);
    ASSERT_NE(sockaddr, nullptr);
    EXPECT_EQ(sockaddr->sa_family, AF_INET);
    EXPECT_EQ(length, 16u);
    EXPECT_EQ(vel_addrinfo_get_next(veladdrinfo, &sockaddr, &length), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(sockaddr, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(vel_addrinfo_get_next(veladdrinfo, &sockaddr, &length), VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(shim_.lookups().size(), 2u);
    EXPECT_EQ(log_.take(), log_lines{});
    vel_addrinfo_destroy(veladdrinfo);
}

INSTANTIATE_TEST_SUITE_P(Rows, VeladdrinfoFailureCase, testing::ValuesIn(kCases),
                         [](const auto &row) { return row.param.name; });

} // namespace
