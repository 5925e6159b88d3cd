#include <optional>
#include <ostream>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/allocfail.h"
#include "support/httpperform.h"
#include "support/oom.h"
#include "support/rows.h"

using support::allocfail_each;
using support::log_capture;
using support::log_line;
using support::row_name;
using support::vel_oom_drive;
using testing::ElementsAre;

static const char kDeprecated[] = "net/velhttp_deprecated";

static lines deprecated_line(int level, const std::string &text)
{
    return {{kDeprecated, level, text}};
}

using text = std::optional<std::string>;

/* What one call gave; a NULL has no value. */
struct parsed {
    vel_error_t result;
    text scheme, hostname;
    unsigned int port;
    text query;

    bool operator==(const parsed &) const = default;
};

static std::ostream &operator<<(std::ostream &out, const parsed &one)
{
    const auto quoted = [](const text &field) { return field ? "\"" + *field + "\"" : "NULL"; };
    return out << one.result << " " << quoted(one.scheme) << " " << quoted(one.hostname) << " "
               << one.port << " " << quoted(one.query);
}

static text take(char *field)
{
    text taken = field ? text(field) : std::nullopt;
    vel_free(field);
    return taken;
}

static parsed parse(const std::string &url)
{
    char dirt = 0, *scheme = &dirt, *hostname = &dirt, *query = &dirt;
    unsigned int port = 77;
    const vel_error_t result = vel_http_parse_url(url.c_str(), &scheme, &hostname, &port, &query);
    const text schemetext = take(scheme), hostnametext = take(hostname), querytext = take(query);
    return {result, schemetext, hostnametext, port, querytext};
}

/* Accepted URLs */

struct accepted_case {
    const char *name;
    const char *url;
    const char *scheme;
    const char *hostname;
    unsigned int port;
    const char *query;
    const char *logged = nullptr; /* at level 13 */
};

static void PrintTo(const accepted_case &row, std::ostream *out)
{
    *out << row.url;
}

static const accepted_case kAccepted[] = {
    {"HostOnly", "http://h", "http", "h", 80, "/"},
    {"Slash", "http://h/", "http", "h", 80, "/"},
    {"QueryIsTheWholeLocalPart", "http://h/a?b#c", "http", "h", 80, "/a?b#c"},
    {"LocalPartWithEverything", "http://h/a@b:c[d]//e", "http", "h", 80, "/a@b:c[d]//e"},
    {"QuestionMarkInTheHost", "http://h?x=1#y", "http", "h?x=1#y", 80, "/"},
    {"Empty", "http://", "http", "", 80, "/"},
    {"EmptyHost", "http:///x", "http", "", 80, "/x"},
    {"EmptyHostAndPort", "http://:81/x", "http", "", 81, "/x"},
    {"EmptyScheme", "://x", "", "x", 0, "/", "unrecognized scheme '' in URL '://x'"},
    {"OddScheme", "a/b c://x:1", "a/b c", "x", 1, "/"},
    {"NothingIsChecked", "http:// \x01\xFF%zz", "http", " \x01\xFF%zz", 80, "/"},

    {"Ftp", "ftp://h", "ftp", "h", 21, "/"},
    {"Https", "https://h", "https", "h", 443, "/"},
    {"Icap", "icap://h", "icap", "h", 1344, "/"},
    {"UpperCaseScheme", "HTTP://x/y", "HTTP", "x", 0, "/y",
     "unrecognized scheme 'HTTP' in URL 'HTTP://x/y'"},
    {"UnknownScheme", "gopher://u:p@x", "gopher", "x", 0, "/",
     "unrecognized scheme 'gopher' in URL 'gopher://u:p@x'"},
    {"UnknownSchemeWithPort", "gopher://x:70", "gopher", "x", 70, "/"},
    {"Port", "http://h:8080/x", "http", "h", 8080, "/x"},
    {"LowestPort", "http://h:1", "http", "h", 1, "/"},
    {"HighestPort", "http://h:65535/", "http", "h", 65535, "/"},
    {"PortWithPlus", "http://h:+80/", "http", "h", 80, "/"},
    {"PortBehindBlanks", "http://h: \t81", "http", "h", 81, "/"},
    {"PortWithZeros", "http://h:000000000000000000000081", "http", "h", 81, "/"},

    {"UserAndPassword", "http://u:p@h/x", "http", "h", 80, "/x"},
    {"ColonOnBothSides", "http://u:p@h:1/x", "http", "h", 1, "/x"},
    {"User", "http://u@h:1", "http", "h", 1, "/"},
    {"EmptyUser", "http://@h", "http", "h", 80, "/"},
    {"EmptyUserAndPassword", "http://:@h", "http", "h", 80, "/"},
    {"NothingBehindTheUser", "http://u@", "http", "", 80, "/"},

    {"Ipv6", "http://[::1]/", "http", "[::1]", 80, "/"},
    {"Ipv6AndPort", "http://[::1]:8080/x", "http", "[::1]", 8080, "/x"},
    {"UserAndIpv6", "http://u:p@[::1]:1", "http", "[::1]", 1, "/"},
    {"NeverClosed", "http://[::1", "http", "[::1", 80, "/"},
    {"NeverClosedAndPath", "http://[::1/x:2", "http", "[::1", 80, "/x:2"},
    {"TextBehindTheBracket", "http://[::1]abc/", "http", "[::1]abc", 80, "/"},
    {"TextAndPortBehindTheBracket", "http://[::1]x:81/", "http", "[::1]x", 81, "/"},
    {"EmptyBrackets", "http://[]", "http", "[]", 80, "/"},
};

class VelhttpParseUrlAccepted : public testing::TestWithParam<accepted_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpParseUrlAccepted, testing::ValuesIn(kAccepted), row_name());

TEST_P(VelhttpParseUrlAccepted, Row)
{
    const accepted_case &row = GetParam();
    log_capture log;
    EXPECT_EQ(parse(row.url),
              (parsed{VEL_ERROR_NONE, row.scheme, row.hostname, row.port, row.query}));
    EXPECT_EQ(log.take(), row.logged ? deprecated_line(13, row.logged) : lines());
}

/* Refused ones; the port is not known yet. */

struct refused_case {
    const char *name;
    const char *url;
    const char *logged;
};

static void PrintTo(const refused_case &row, std::ostream *out)
{
    *out << row.url;
}

static const char kPortRange[] = "the port number must be between 1-65535";

static const refused_case kRefused[] = {
    {"Empty", "", "URL '' has no colon after scheme"},
    {"NoColon", "h%s/x", "URL 'h%s/x' has no colon after scheme"},
    {"NoSlashes", "mailto:a@b", "URL 'mailto:a@b' has no :// after scheme"},
    {"OneSlash", "http:/h", "URL 'http:/h' has no :// after scheme"},
    {"ColonAtTheEnd", "http:", "URL 'http:' has no :// after scheme"},
    {"TheFirstColonCounts", "a:b://c", "URL 'a:b://c' has no :// after scheme"},

    {"BracketInTheHost", "http://a[b]/",
     "URL 'http://a[b]/' has '[' in hostname or username that does not start an IPv6 address"},
    {"TwoBrackets", "http://[[::1]",
     "URL 'http://[[::1]' has '[' in hostname or username that does not start an IPv6 address"},
    {"BracketBehindIpv6", "http://[::1][",
     "URL 'http://[::1][' has '[' in hostname or username that does not start an IPv6 address"},
    {"BracketInThePort", "http://h:[",
     "URL 'http://h:[' has '[' in hostname or username that does not start an IPv6 address"},
    {"ClosingBracket", "http://a]/",
     "URL 'http://a]/' has ']' in hostname or username that does not end an IPv6 address"},
    {"ClosingBracketFirst", "http://]",
     "URL 'http://]' has ']' in hostname or username that does not end an IPv6 address"},
    {"ClosedTwice", "http://[::1]]",
     "URL 'http://[::1]]' has ']' in hostname or username that does not end an IPv6 address"},
    {"TwoUsers", "http://a@b@c/", "URL 'http://a@b@c/' has multiple user names ('@') in hostname"},
    {"TwoUsersAndIpv6", "http://a@[b]@c/",
     "URL 'http://a@[b]@c/' has multiple user names ('@') in hostname"},
    {"UserBehindIpv6", "http://[::1]@h/",
     "URL 'http://[::1]@h/' has '@' in hostname after an IPv6 address"},
    {"UserInIpv6", "http://[::1@h/",
     "URL 'http://[::1@h/' has '@' in hostname after an IPv6 address"},
    {"TwoColons", "http://a:b:c/", "URL 'http://a:b:c/' has two colons in hostname or username"},
    {"TwoPorts", "http://h:1:2/", "URL 'http://h:1:2/' has two colons in hostname or username"},
    {"TwoColonsBehindTheUser", "http://u:p@h:1:2",
     "URL 'http://u:p@h:1:2' has two colons in hostname or username"},
    {"TwoColonsBehindIpv6", "http://[::1]:1:2",
     "URL 'http://[::1]:1:2' has two colons in hostname or username"},

    {"ColonAndPath", "http://h:/x", kPortRange},
    {"ColonAndEnd", "http://h:", kPortRange},
    {"ColonAlone", "http://:", kPortRange},
    {"UnknownSchemeAndColon", "gopher://h:", kPortRange},
    {"PortOfZero", "http://h:0/", kPortRange},
    {"PortOfLetters", "http://h:abc/", kPortRange},
};

class VelhttpParseUrlRefused : public testing::TestWithParam<refused_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpParseUrlRefused, testing::ValuesIn(kRefused), row_name());

static const parsed kRefusal = {VEL_ERROR_INVALID_ARGUMENT, {}, {}, 0, {}};

TEST_P(VelhttpParseUrlRefused, Row)
{
    log_capture log;
    EXPECT_EQ(parse(GetParam().url), kRefusal);
    EXPECT_EQ(log.take(), deprecated_line(6, GetParam().logged));
}

/* Refused for a port that was read. */
TEST(VelhttpParseUrl, PortOutOfRange)
{
    log_capture log;
    for (const char *url : {"http://h:65536/", "http://h:4294967376", "http://h:-1/",
                            "http://h:99999999999999999999999/"}) {
        parsed found = parse(url);
        found.port = 0;
        EXPECT_EQ(found, kRefusal) << url;
        EXPECT_EQ(log.take(), deprecated_line(6, kPortRange)) << url;
    }
}

TEST(VelhttpParseUrl, TextBehindThePort)
{
    log_capture log;
    for (const auto &[url, character] :
         {std::pair("http://h:80x/", 'x'), std::pair("http://h:80 /", ' '),
          std::pair("http://h:80?a", '?'), std::pair("http://[::1]:80#", '#')}) {
        EXPECT_EQ(parse(url), (parsed{VEL_ERROR_INVALID_ARGUMENT, {}, {}, 80, {}})) << url;
        EXPECT_EQ(log.take(), deprecated_line(6, std::string("invalid character '") + character +
                                                     "' in port number"))
            << url;
    }
}

TEST(VelhttpParseUrl, EachOutputMayBeNull)
{
    const char *url = "http://u:p@h:81/x";
    for (int wanted = 0; wanted < 16; wanted++) {
        char *scheme = nullptr, *hostname = nullptr, *query = nullptr;
        unsigned int port = 0;
        EXPECT_EQ(vel_http_parse_url(url, wanted & 1 ? &scheme : nullptr,
                                     wanted & 2 ? &hostname : nullptr, wanted & 4 ? &port : nullptr,
                                     wanted & 8 ? &query : nullptr),
                  VEL_ERROR_NONE);
        EXPECT_EQ(take(scheme), wanted & 1 ? text("http") : std::nullopt);
        EXPECT_EQ(take(hostname), wanted & 2 ? text("h") : std::nullopt);
        EXPECT_EQ(port, wanted & 4 ? 81u : 0u);
        EXPECT_EQ(take(query), wanted & 8 ? text("/x") : std::nullopt);
    }
    log_capture log;
    EXPECT_EQ(vel_http_parse_url("http://h:", nullptr, nullptr, nullptr, nullptr),
              VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(log.take(), deprecated_line(6, kPortRange));
}

TEST(VelhttpParseUrl, LongParts)
{
    const std::string part(100000, 'x');
    EXPECT_EQ(parse(part + "://" + part + ":" + part + "@" + part + ":9/" + part),
              (parsed{VEL_ERROR_NONE, part, part, 9, "/" + part}));
}

/* Beside velurl */

/* What velurl makes of it, in the same shape. */
static parsed parse_with_velurl(const std::string &url)
{
    velurl *context = vel_url_create();
    parsed found = {vel_url_set_url(context, url.c_str()), {}, {}, 0, {}};
    if (found.result == VEL_ERROR_NONE)
        found = {VEL_ERROR_NONE, vel_url_get_scheme(context), vel_url_get_host(context),
                 vel_url_get_port(context), vel_url_get_localpart(context)};
    vel_url_destroy(context);
    return found;
}

struct difference_case {
    const char *name;
    const char *url;
    parsed here;
    parsed velurl;
    lines loggedhere;
    lines loggedthere;
};

static void PrintTo(const difference_case &row, std::ostream *out)
{
    *out << row.url;
}

static lines velurl_line(const std::string &text)
{
    return {{"util/velurl", 6, text}};
}

static const difference_case kDifferences[] = {
    {"BracketsOfIpv6",
     "http://[::1]:8080/x",
     {VEL_ERROR_NONE, "http", "[::1]", 8080, "/x"},
     {VEL_ERROR_NONE, "http", "::1", 8080, "/x"},
     {},
     {}},
    {"BracketNeverClosed",
     "http://[::1",
     {VEL_ERROR_NONE, "http", "[::1", 80, "/"},
     {VEL_ERROR_NONE, "http", "::1", 80, "/"},
     {},
     {}},
    {"TextBehindIpv6",
     "http://[::1]abc:1/",
     {VEL_ERROR_NONE, "http", "[::1]abc", 1, "/"},
     {VEL_ERROR_NONE, "http", "::1", 1, "/"},
     {},
     {}},
    {"ColonAndPath",
     "http://h:/x",
     kRefusal,
     {VEL_ERROR_NONE, "http", "h", 80, "/x"},
     deprecated_line(6, kPortRange),
     {}},
    {"ColonAndEnd",
     "https://u@[::1]:",
     kRefusal,
     {VEL_ERROR_NONE, "https", "::1", 443, "/"},
     deprecated_line(6, kPortRange),
     {}},
    {"WordsOfTwoUsers", "http://a@b@c/", kRefusal, kRefusal,
     deprecated_line(6, "URL 'http://a@b@c/' has multiple user names ('@') in hostname"),
     velurl_line("URL 'http://a@b@c/' has multiple user names ('@') in network locality")},
    {"WordsOfUserBehindIpv6", "http://[a]@b/", kRefusal, kRefusal,
     deprecated_line(6, "URL 'http://[a]@b/' has '@' in hostname after an IPv6 address"),
     velurl_line("URL 'http://[a]@b/' has '@' in network locality after an IPv6 address")},
};

class VelhttpParseUrlDifference : public testing::TestWithParam<difference_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelhttpParseUrlDifference, testing::ValuesIn(kDifferences),
                         row_name());

TEST_P(VelhttpParseUrlDifference, FromVelurl)
{
    const difference_case &row = GetParam();
    log_capture log;
    EXPECT_EQ(parse(row.url), row.here);
    EXPECT_EQ(log.take(), row.loggedhere);
    EXPECT_EQ(parse_with_velurl(row.url), row.velurl);
    EXPECT_EQ(log.take(), row.loggedthere);
}

/* Whether the host of a good URL is followed by ":" and nothing. */
static bool has_empty_port(const std::string &url)
{
    const size_t start = url.find("://") + 3;
    std::string host = url.substr(start, url.find('/', start) - start);
    host.erase(0, host.find('@') + 1);
    return host.ends_with(':') &&
           (host.find('[') == std::string::npos || host.find(']') != std::string::npos);
}

/* There are no other differences than those of the rows above. */
TEST(VelhttpParseUrl, AgreesWithVelurlOtherwise)
{
    std::mt19937 random(85);
    log_capture log;
    int accepted = 0, refused = 0, empty = 0;
    for (int turn = 0; turn < 10000; turn++) {
        std::string url = random() % 50 ? "http://" : "httx:/";
        for (size_t left = random() % 10; left > 0; left--)
            url += "ab:@[]/?18"[random() % 10];
        parsed here = parse(url);
        const lines loggedhere = log.take();
        const parsed there = parse_with_velurl(url);
        lines loggedthere = log.take();

        if (there.result == VEL_ERROR_NONE && has_empty_port(url)) {
            empty++;
            EXPECT_EQ(here, kRefusal) << url;
            EXPECT_EQ(loggedhere, deprecated_line(6, kPortRange)) << url;
            continue;
        }
        EXPECT_EQ(here.result, there.result) << url;
        (here.result == VEL_ERROR_NONE ? accepted : refused)++;
        for (log_line &line : loggedthere) {
            line.module = kDeprecated;
            line.text = std::regex_replace(line.text, std::regex("network locality"), "hostname");
        }
        EXPECT_EQ(loggedhere, loggedthere) << url;
        if (here.result != VEL_ERROR_NONE)
            continue;
        if (here.hostname->starts_with('['))
            *here.hostname = here.hostname->substr(1, here.hostname->find(']') - 1);
        EXPECT_EQ(here, there) << url;
    }
    EXPECT_GT(accepted, 1000);
    EXPECT_GT(refused, 1000);
    EXPECT_GT(empty, 100);
}

/* Out of memory */

static lines no_memory(const char *what)
{
    return deprecated_line(7, std::string("not enough memory for ") + what);
}

TEST(VelhttpParseUrl, WithoutMemory)
{
    log_capture log;
    std::vector<unsigned int> ports;
    const auto failures = allocfail_each(log, [&ports] {
        const parsed found = parse("http://u:p@h:81/x");
        if (found.result == VEL_ERROR_NONE)
            return true;
        EXPECT_EQ(found, (parsed{VEL_ERROR_NO_MEMORY, {}, {}, found.port, {}}));
        ports.push_back(found.port);
        return false;
    });
    EXPECT_THAT(failures, ElementsAre(no_memory("URL scheme"), no_memory("hostname"),
                                      no_memory("query part of the URL")));
    EXPECT_THAT(ports, ElementsAre(0u, 0u, 81u));
}

TEST(VelhttpParseUrl, WithoutMemoryForTheDefaults)
{
    log_capture log;
    std::vector<unsigned int> ports;
    const auto failures = allocfail_each(log, [&ports] {
        const parsed found = parse("https://h");
        ports.push_back(found.port);
        return found.result == VEL_ERROR_NONE;
    });
    EXPECT_THAT(failures, ElementsAre(no_memory("URL scheme"), no_memory("hostname"),
                                      no_memory("query part of the URL")));
    EXPECT_THAT(ports, ElementsAre(0u, 0u, 443u, 443u));
}

TEST(VelhttpParseUrlOom, Life)
{
    vel_oom_drive([] {
        bool good = true;
        for (const char *url : {"http://u:p@[::1]:81/x", "gopher://h"})
            good = good && parse(url).result == VEL_ERROR_NONE;
        EXPECT_NE(parse("http://h:x").result, VEL_ERROR_NONE);
        EXPECT_NE(parse("http://a@b@c").result, VEL_ERROR_NONE);
        return good;
    });
}

/* The switch */

class VelhttpTlsSwitch : public VelhttpPerform {};

TEST_F(VelhttpTlsSwitch, IsOffAtFirstAndTurns)
{
    EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 0);
    for (int turn = 0; turn < 2; turn++) {
        vel_http_deprecated_allow_invalid_tls_certificate_name(http);
        EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 1);
        vel_http_deprecated_allow_invalid_tls_certificate_name(http);
        EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 1);
        vel_http_deprecated_disallow_invalid_tls_certificate_name(http);
        EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 0);
        vel_http_deprecated_disallow_invalid_tls_certificate_name(http);
        EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 0);
    }
}

TEST_F(VelhttpTlsSwitch, BelongsToOneContext)
{
    support::http_backend otherbackend;
    velhttp *other = otherbackend.create();
    ASSERT_NE(other, nullptr);
    vel_http_deprecated_allow_invalid_tls_certificate_name(http);
    EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(other), 0);
    vel_http_destroy(other);
}

TEST_F(VelhttpTlsSwitch, ABackendReadsIt)
{
    vel_http_deprecated_allow_invalid_tls_certificate_name(http);
    int seen = 77;
    EXPECT_EQ(
        inside([&] { seen = vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http); }),
        VEL_ERROR_NONE);
    EXPECT_EQ(seen, 1);
}

TEST_F(VelhttpTlsSwitch, IsOffAgainAfterAnAsynchronousStart)
{
    velhttprequest *request = nullptr;
    int context = 0, seen = 77;
    backend.start = [&](velhttp *, velhttprequest *started, vel_error_t *) {
        request = started;
        EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 1);
        return &context;
    };
    completion_function done = [&](velhttp *, vel_error_t) {
        seen = vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http);
    };
    vel_error_t result = 77;
    vel_http_deprecated_allow_invalid_tls_certificate_name(http);
    ASSERT_NE(vel_http_perform_async(http, call_completion, &done, &result), nullptr);
    EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 0);
    vel_http_complete_request(http, request, VEL_ERROR_NONE);
    EXPECT_EQ(seen, 0) << "the switch is that of the prepared request";
    EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 0);
}

TEST_F(VelhttpTlsSwitch, SurvivesAResetAndATransfer)
{
    vel_http_deprecated_allow_invalid_tls_certificate_name(http);
    EXPECT_EQ(vel_http_reset(http), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 1);
    ASSERT_EQ(vel_http_set_url(http, "http://a/b"), VEL_ERROR_NONE);
    EXPECT_EQ(inside([] {}), VEL_ERROR_NONE);
    EXPECT_EQ(vel_http_deprecated_is_invalid_tls_certificate_name_allowed(http), 1);
}

/* Assertions */

TEST(VelhttpDeprecatedDeathTest, ArgumentsAreAsserted)
{
    EXPECT_DEATH(vel_http_parse_url(nullptr, nullptr, nullptr, nullptr, nullptr),
                 asserts("url != NULL"));
    EXPECT_DEATH(
        vel_http_deprecated_allow_invalid_tls_certificate_name(nullptr),
        asserts("velhttp != NULL", "vel_http_deprecated_allow_invalid_tls_certificate_name"));
    EXPECT_DEATH(
        vel_http_deprecated_disallow_invalid_tls_certificate_name(nullptr),
        asserts("velhttp != NULL", "vel_http_deprecated_disallow_invalid_tls_certificate_name"));
    EXPECT_DEATH(
        vel_http_deprecated_is_invalid_tls_certificate_name_allowed(nullptr),
        asserts("velhttp != NULL", "vel_http_deprecated_is_invalid_tls_certificate_name_allowed"));
}
