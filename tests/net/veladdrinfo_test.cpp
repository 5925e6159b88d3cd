#include <arpa/inet.h>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/netfixture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"
#include "support/rows.h"

namespace {

using support::asserts;
using support::log_line;
using support::log_lines;

/* A pointer that is no address, to see that an output is written. */
sockaddr *const kDirt = reinterpret_cast<sockaddr *>(16);

struct answer {
    sockaddr *address = kDirt;
    socklen_t length = 77;
    vel_error_t velerror;

    explicit answer(veladdrinfo *list) : velerror(vel_addrinfo_get_next(list, &address, &length))
    {
    }
};

std::string text_of(const sockaddr *address)
{
    char text[INET6_ADDRSTRLEN] = "";
    if (address->sa_family == AF_INET)
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, text,
                  sizeof text);
    else
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr, text,
                  sizeof text);
    return text;
}

unsigned int port_of(const sockaddr *address)
{
    return ntohs(address->sa_family == AF_INET
                     ? reinterpret_cast<const sockaddr_in *>(address)->sin_port
                     : reinterpret_cast<const sockaddr_in6 *>(address)->sin6_port);
}

void expect_end(veladdrinfo *list)
{
    const answer end(list);
    EXPECT_EQ(end.velerror, VEL_ERROR_END_OF_FILE);
    EXPECT_EQ(end.address, nullptr);
    EXPECT_EQ(end.length, 0u);
}

class Veladdrinfo : public support::net_test {
  protected:
    void SetUp() override
    {
        list_ = vel_addrinfo_create("host");
        ASSERT_NE(list_, nullptr);
    }
    void TearDown() override
    {
        vel_addrinfo_destroy(list_);
        net_test::TearDown();
    }
    veladdrinfo *list_ = nullptr;
};

TEST_F(Veladdrinfo, LooksUpNothingBeforeTheFirstGet)
{
    vel_addrinfo_set_udp(list_);
    vel_addrinfo_set_numerichost(list_);
    EXPECT_TRUE(shim_.lookups().empty());
}

struct hints_case {
    const char *name;
    bool udp;
    bool numerichost;
    int socktype;
    int protocol;
    int moreflags;
};

std::ostream &operator<<(std::ostream &out, const hints_case &row)
{
    return out << row.name;
}

const hints_case kHintsCases[] = {
    {"Tcp", false, false, SOCK_STREAM, 6, 0},
    {"Udp", true, false, SOCK_DGRAM, 17, 0},
    {"NumericTcp", false, true, SOCK_STREAM, 6, AI_NUMERICHOST},
    {"NumericUdp", true, true, SOCK_DGRAM, 17, AI_NUMERICHOST},
};

class VeladdrinfoHintsCase : public Veladdrinfo, public testing::WithParamInterface<hints_case> {};

TEST_P(VeladdrinfoHintsCase, AreThoseOfTheSwitches)
{
    shim_.resolve({{"127.0.0.1"}});
    if (GetParam().udp)
        vel_addrinfo_set_udp(list_);
    if (GetParam().numerichost)
        vel_addrinfo_set_numerichost(list_);
    EXPECT_EQ(answer(list_).velerror, VEL_ERROR_NONE);

    ASSERT_EQ(shim_.lookups().size(), 1u);
    const addrinfo &hints = shim_.lookups()[0];
    EXPECT_EQ(hints.ai_flags, AI_ADDRCONFIG | AI_V4MAPPED | GetParam().moreflags);
    EXPECT_EQ(hints.ai_family, AF_UNSPEC);
    EXPECT_EQ(hints.ai_socktype, GetParam().socktype);
    EXPECT_EQ(hints.ai_protocol, GetParam().protocol);
    EXPECT_EQ(hints.ai_addrlen, 0u);
    EXPECT_EQ(hints.ai_addr, nullptr);
    EXPECT_EQ(hints.ai_canonname, nullptr);
    EXPECT_EQ(hints.ai_next, nullptr);
    EXPECT_EQ(log_.take(), log_lines{});
}

INSTANTIATE_TEST_SUITE_P(Rows, VeladdrinfoHintsCase, testing::ValuesIn(kHintsCases),
                         support::row_name());

/* Foreign families are handed out as well: what to do with them is the caller's business. */
TEST_F(Veladdrinfo, GivesEveryAddressInTheOrderOfTheResolver)
{
    shim_.resolve({{"127.0.0.9"}, {"::1"}, {"unix"}, {"127.0.0.1"}, {"127.0.0.9"}});
    const answer first(list_);
    EXPECT_EQ(first.velerror, VEL_ERROR_NONE);
    EXPECT_EQ(text_of(first.address), "127.0.0.9");
    EXPECT_EQ(first.length, sizeof(sockaddr_in));
    const answer second(list_);
    EXPECT_EQ(second.velerror, VEL_ERROR_NONE);
    EXPECT_EQ(text_of(second.address), "::1");
    EXPECT_EQ(second.length, sizeof(sockaddr_in6));
    const answer third(list_);
    EXPECT_EQ(third.velerror, VEL_ERROR_NONE);
    EXPECT_EQ(third.address->sa_family, AF_UNIX);
    EXPECT_EQ(third.length, sizeof(sa_family_t));
    EXPECT_EQ(text_of(answer(list_).address), "127.0.0.1");
    EXPECT_EQ(text_of(answer(list_).address), "127.0.0.9");
    expect_end(list_);
    EXPECT_EQ(shim_.lookups().size(), 1u);
}

TEST_F(Veladdrinfo, StaysAtTheEndWithoutANewLookup)
{
    shim_.resolve({{"127.0.0.1"}});
    EXPECT_EQ(answer(list_).velerror, VEL_ERROR_NONE);
    for (int i = 0; i < 3; i++)
        expect_end(list_);
    EXPECT_EQ(shim_.lookups().size(), 1u);
    EXPECT_EQ(shim_.open_lists(), 1);
    EXPECT_EQ(log_.take(), log_lines{});
}

/* Also behind the end, and until the list is destroyed. */
TEST_F(Veladdrinfo, AddressesStayAndMayBeWritten)
{
    shim_.resolve({{"127.0.0.1"}, {"::1"}});
    const answer first(list_);
    ASSERT_EQ(first.velerror, VEL_ERROR_NONE);
    EXPECT_EQ(port_of(first.address), 0u);
    reinterpret_cast<sockaddr_in *>(first.address)->sin_port = htons(80);
    const answer second(list_);
    ASSERT_EQ(second.velerror, VEL_ERROR_NONE);
    EXPECT_EQ(port_of(second.address), 0u);
    reinterpret_cast<sockaddr_in6 *>(second.address)->sin6_port = htons(81);
    expect_end(list_);
    EXPECT_EQ(text_of(first.address), "127.0.0.1");
    EXPECT_EQ(port_of(first.address), 80u);
    EXPECT_EQ(text_of(second.address), "::1");
    EXPECT_EQ(port_of(second.address), 81u);
}

TEST_F(Veladdrinfo, DestroyReleasesTheAddresses)
{
    shim_.resolve({{"127.0.0.1"}, {"127.0.0.2"}});
    veladdrinfo *list = vel_addrinfo_create("host");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(answer(list).velerror, VEL_ERROR_NONE);
    EXPECT_EQ(shim_.open_lists(), 1);
    vel_addrinfo_destroy(list);
    EXPECT_EQ(shim_.open_lists(), 0);
}

TEST_F(Veladdrinfo, SwitchesAreReadAtTheLookupOnly)
{
    shim_.resolve({{"127.0.0.1"}, {"127.0.0.2"}});
    EXPECT_EQ(answer(list_).velerror, VEL_ERROR_NONE);
    vel_addrinfo_set_udp(list_);
    vel_addrinfo_set_numerichost(list_);
    EXPECT_EQ(text_of(answer(list_).address), "127.0.0.2");
    expect_end(list_);
    EXPECT_EQ(shim_.lookups().size(), 1u);
}

/* The same name, as a name and as a numeric address; what is asked for differs only in the flag
 * that keeps the resolver from looking for it. */
TEST_F(Veladdrinfo, UnknownNameIsBadSyntaxWhereNumbersAreExpected)
{
    shim_.resolve_fails(EAI_NONAME);
    const answer unresolved(list_);
    EXPECT_EQ(unresolved.velerror, VEL_ERROR_HOST_UNRESOLVED);
    EXPECT_EQ(unresolved.address, nullptr);
    EXPECT_EQ(unresolved.length, 0u);
    vel_addrinfo_set_numerichost(list_);
    const answer invalid(list_);
    EXPECT_EQ(invalid.velerror, VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(invalid.address, nullptr);
    EXPECT_EQ(invalid.length, 0u);

    ASSERT_EQ(shim_.lookups().size(), 2u);
    EXPECT_EQ(shim_.lookups()[0].ai_flags & AI_NUMERICHOST, 0);
    EXPECT_EQ(shim_.lookups()[1].ai_flags, shim_.lookups()[0].ai_flags | AI_NUMERICHOST);
    EXPECT_EQ(log_.take(),
              (log_lines{{"net/veladdrinfo", 7,
                          "getaddrinfo() returned error -2 (EAI_NONAME; name does not resolve)"},
                         {"net/veladdrinfo", 7,
                          "getaddrinfo() returned error -2 "
                          "(EAI_NONAME; numeric hostname could not be converted)"}}));
}

TEST_F(Veladdrinfo, AfterAFailedLookupTheWalkStartsAtTheFirstAddress)
{
    shim_.resolve_fails(EAI_AGAIN);
    for (int i = 0; i < 2; i++) {
        const answer failed(list_);
        EXPECT_EQ(failed.velerror, VEL_ERROR_TEMPORARY_FAILURE);
        EXPECT_EQ(failed.address, nullptr);
        EXPECT_EQ(failed.length, 0u);
    }
    shim_.resolve({{"127.0.0.1"}, {"127.0.0.2"}});
    EXPECT_EQ(text_of(answer(list_).address), "127.0.0.1");
    EXPECT_EQ(text_of(answer(list_).address), "127.0.0.2");
    expect_end(list_);
    EXPECT_EQ(shim_.lookups().size(), 3u);
}

/* The platform's own resolver, asked for what needs no network. */
TEST_F(Veladdrinfo, CopiesTheName)
{
    char name[] = "127.0.0.1";
    veladdrinfo *list = vel_addrinfo_create(name);
    ASSERT_NE(list, nullptr);
    memset(name, 'x', sizeof name - 1);
    const answer first(list);
    EXPECT_EQ(first.velerror, VEL_ERROR_NONE);
    ASSERT_NE(first.address, nullptr);
    EXPECT_EQ(text_of(first.address), "127.0.0.1");
    EXPECT_EQ(first.length, sizeof(sockaddr_in));
    EXPECT_EQ(port_of(first.address), 0u);
    expect_end(list);
    vel_addrinfo_destroy(list);
}

TEST_F(Veladdrinfo, NumericHostOfThePlatform)
{
    veladdrinfo *list = vel_addrinfo_create("localhost");
    ASSERT_NE(list, nullptr);
    vel_addrinfo_set_numerichost(list);
    EXPECT_EQ(answer(list).velerror, VEL_ERROR_INVALID_SYNTAX);
    vel_addrinfo_destroy(list);

    list = vel_addrinfo_create("::1");
    ASSERT_NE(list, nullptr);
    vel_addrinfo_set_udp(list);
    vel_addrinfo_set_numerichost(list);
    const answer first(list);
    EXPECT_EQ(first.velerror, VEL_ERROR_NONE);
    ASSERT_NE(first.address, nullptr);
    EXPECT_EQ(text_of(first.address), "::1");
    EXPECT_EQ(first.length, sizeof(sockaddr_in6));
    EXPECT_EQ(port_of(first.address), 0u);
    expect_end(list);
    vel_addrinfo_destroy(list);
}

struct memory_case {
    const char *name;
    size_t allocation;
    const char *text;
};

std::ostream &operator<<(std::ostream &out, const memory_case &row)
{
    return out << row.name;
}

const memory_case kMemoryCases[] = {
    {"Structure", 1, "not enough memory for veladdrinfo structure"},
    {"Name", 2, "not enough memory for host name"},
};

class VeladdrinfoMemoryCase : public support::net_test,
                              public testing::WithParamInterface<memory_case> {};

TEST_P(VeladdrinfoMemoryCase, GivesNoList)
{
    veladdrinfo *list = nullptr;
    {
        const support::malloc_watch watch(GetParam().allocation);
        list = vel_addrinfo_create("host");
    }
    EXPECT_EQ(list, nullptr);
    EXPECT_EQ(log_.take(), (log_lines{{"net/veladdrinfo", 7, GetParam().text}}));
}

INSTANTIATE_TEST_SUITE_P(Rows, VeladdrinfoMemoryCase, testing::ValuesIn(kMemoryCases),
                         support::row_name());

bool addrinfo_life()
{
    veladdrinfo *list = vel_addrinfo_create("127.0.0.1");
    if (!list)
        return false;
    vel_addrinfo_set_udp(list);
    vel_addrinfo_set_numerichost(list);
    const vel_error_t first = answer(list).velerror;
    const vel_error_t second = answer(list).velerror;
    vel_addrinfo_destroy(list);
    return first == VEL_ERROR_NONE && second == VEL_ERROR_END_OF_FILE;
}

TEST(VeladdrinfoOom, EveryAllocationMayFail)
{
    support::vel_oom_drive(addrinfo_life);
}

using VeladdrinfoDeathTest = Veladdrinfo;

TEST_F(VeladdrinfoDeathTest, Create)
{
    EXPECT_DEATH(vel_addrinfo_create(nullptr), asserts("hostname != NULL", "vel_addrinfo_create"));
}

TEST_F(VeladdrinfoDeathTest, Handle)
{
    sockaddr *address = nullptr;
    socklen_t length = 0;
    EXPECT_DEATH(vel_addrinfo_destroy(nullptr),
                 asserts("veladdrinfo != NULL", "vel_addrinfo_destroy"));
    EXPECT_DEATH(vel_addrinfo_set_udp(nullptr),
                 asserts("veladdrinfo != NULL", "vel_addrinfo_set_udp"));
    EXPECT_DEATH(vel_addrinfo_set_numerichost(nullptr),
                 asserts("veladdrinfo != NULL", "vel_addrinfo_set_numerichost"));
    EXPECT_DEATH(vel_addrinfo_get_next(nullptr, &address, &length),
                 asserts("veladdrinfo != NULL", "vel_addrinfo_get_next"));
}

TEST_F(VeladdrinfoDeathTest, Outputs)
{
    sockaddr *address = nullptr;
    EXPECT_DEATH(vel_addrinfo_get_next(list_, nullptr, nullptr),
                 asserts("sockaddrptr != NULL", "vel_addrinfo_get_next"));
    EXPECT_DEATH(vel_addrinfo_get_next(list_, &address, nullptr),
                 asserts("socklenptr != NULL", "vel_addrinfo_get_next"));
    EXPECT_DEATH(vel_addrinfo_get_next(nullptr, nullptr, nullptr),
                 asserts("veladdrinfo != NULL", "vel_addrinfo_get_next"));
}

/* A resolver that reports success has to give an address, and one that fails none. */
TEST_F(VeladdrinfoDeathTest, ResolverThatContradictsItself)
{
    sockaddr *address = nullptr;
    socklen_t length = 0;
    shim_.resolve({});
    EXPECT_DEATH(vel_addrinfo_get_next(list_, &address, &length),
                 asserts("veladdrinfo->addrinfo != NULL"));
    shim_.resolve({{"127.0.0.1"}});
    shim_.resolve_fails(EAI_FAIL, 0, /*leaveslist=*/true);
    EXPECT_DEATH(vel_addrinfo_get_next(list_, &address, &length),
                 asserts("veladdrinfo->addrinfo == NULL"));
}

} // namespace
