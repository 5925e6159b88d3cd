#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "util/velurl";

/* What the getters give; a field that is absent has no value. */
struct url_fields {
    using text = std::optional<std::string>;

    text scheme, netloc, username, password, host;
    unsigned int port = 0;
    text localpart, path, params, query;

    bool operator==(const url_fields &) const = default;
};

static void print_field(std::ostream &out, const char *name, const url_fields::text &field)
{
    out << " " << name << "=" << (field ? "\"" + *field + "\"" : "NULL");
}

static std::ostream &operator<<(std::ostream &out, const url_fields &fields)
{
    print_field(out, "scheme", fields.scheme);
    print_field(out, "netloc", fields.netloc);
    print_field(out, "username", fields.username);
    print_field(out, "password", fields.password);
    print_field(out, "host", fields.host);
    out << " port=" << fields.port;
    print_field(out, "localpart", fields.localpart);
    print_field(out, "path", fields.path);
    print_field(out, "params", fields.params);
    print_field(out, "query", fields.query);
    return out;
}

static url_fields::text text_of(const char *field)
{
    return field ? url_fields::text(field) : std::nullopt;
}

static url_fields fields_of(velurl *url)
{
    return {text_of(vel_url_get_scheme(url)),    text_of(vel_url_get_netloc(url)),
            text_of(vel_url_get_username(url)),  text_of(vel_url_get_password(url)),
            text_of(vel_url_get_host(url)),      vel_url_get_port(url),
            text_of(vel_url_get_localpart(url)), text_of(vel_url_get_path(url)),
            text_of(vel_url_get_params(url)),    text_of(vel_url_get_query(url))};
}

class Velurl : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_NE(url, nullptr);
    }

    ~Velurl() override
    {
        vel_url_destroy(url);
    }

    log_capture log;
    velurl *url = vel_url_create();
};

/* Accepted URLs */

struct accepted_case {
    const char *name;
    std::string url;
    url_fields fields;
    const char *line = nullptr; /* of level 13 */
};

static void PrintTo(const accepted_case &row, std::ostream *out)
{
    *out << row.url;
}

static const std::optional<std::string> kNone;

static const accepted_case kAccepted[] = {
    {"All",
     "http://u:p@h:8080/a;b?c#d",
     {"http", "u:p@h:8080", "u", "p", "h", 8080, "/a;b?c#d", "/a", "b", "c#d"}},
    {"HostOnly", "http://h", {"http", "h", kNone, kNone, "h", 80, "/", "/", kNone, kNone}},
    {"Slash", "http://h/", {"http", "h", kNone, kNone, "h", 80, "/", "/", kNone, kNone}},
    {"Empty", "http://", {"http", "", kNone, kNone, "", 80, "/", "/", kNone, kNone}},
    {"EmptyHostAndPath", "http:///x", {"http", "", kNone, kNone, "", 80, "/x", "/x", kNone, kNone}},
    {"EmptyScheme",
     "://x",
     {"", "x", kNone, kNone, "x", 0, "/", "/", kNone, kNone},
     "unrecognized scheme '' in URL '://x'"},
    {"SchemeIsNotChecked",
     " %\x01/\xff://x:1",
     {" %\x01/\xff", "x:1", kNone, kNone, "x", 1, "/", "/", kNone, kNone}},
    {"NothingIsLowerCasedOrDecoded",
     "hTtP://U%41:P%42@H%43:1/D%44;E%45?F%46",
     {"hTtP", "U%41:P%42@H%43:1", "U%41", "P%42", "H%43", 1, "/D%44;E%45?F%46", "/D%44", "E%45",
      "F%46"}},
    {"SpacesAreAHost",
     "http://   ",
     {"http", "   ", kNone, kNone, "   ", 80, "/", "/", kNone, kNone}},
    {"ControlAndHighBytesInTheHost",
     "http://a\x01\x7f\xc3\xa9/",
     {"http", "a\x01\x7f\xc3\xa9", kNone, kNone, "a\x01\x7f\xc3\xa9", 80, "/", "/", kNone, kNone}},

    /* ports */
    {"Ftp", "ftp://h", {"ftp", "h", kNone, kNone, "h", 21, "/", "/", kNone, kNone}},
    {"Https", "https://h", {"https", "h", kNone, kNone, "h", 443, "/", "/", kNone, kNone}},
    {"Icap", "icap://h", {"icap", "h", kNone, kNone, "h", 1344, "/", "/", kNone, kNone}},
    {"IcapUnix",
     "icap+unix://h",
     {"icap+unix", "h", kNone, kNone, "h", 0, "/", "/", kNone, kNone},
     "unrecognized scheme 'icap+unix' in URL 'icap+unix://h'"},
    {"UpperCaseScheme",
     "HTTP://x",
     {"HTTP", "x", kNone, kNone, "x", 0, "/", "/", kNone, kNone},
     "unrecognized scheme 'HTTP' in URL 'HTTP://x'"},
    {"LongerScheme",
     "httpx://x",
     {"httpx", "x", kNone, kNone, "x", 0, "/", "/", kNone, kNone},
     "unrecognized scheme 'httpx' in URL 'httpx://x'"},
    {"UnknownSchemeLogsThePassword",
     "gopher://u:secret@x/y",
     {"gopher", "u:secret@x", "u", "secret", "x", 0, "/y", "/y", kNone, kNone},
     "unrecognized scheme 'gopher' in URL 'gopher://u:secret@x/y'"},
    {"UnknownSchemeWithAPort",
     "gopher://x:70",
     {"gopher", "x:70", kNone, kNone, "x", 70, "/", "/", kNone, kNone}},
    {"UnknownSchemeWithAColonOnly",
     "gopher://x:",
     {"gopher", "x:", kNone, kNone, "x", 0, "/", "/", kNone, kNone},
     "unrecognized scheme 'gopher' in URL 'gopher://x:'"},
    {"ColonAndSlash", "http://h:/", {"http", "h:", kNone, kNone, "h", 80, "/", "/", kNone, kNone}},
    {"ColonAndEnd", "http://h:", {"http", "h:", kNone, kNone, "h", 80, "/", "/", kNone, kNone}},
    {"ColonAlone", "http://:", {"http", ":", kNone, kNone, "", 80, "/", "/", kNone, kNone}},
    {"LowestPort", "http://h:1/", {"http", "h:1", kNone, kNone, "h", 1, "/", "/", kNone, kNone}},
    {"HighestPort",
     "http://h:65535/",
     {"http", "h:65535", kNone, kNone, "h", 65535, "/", "/", kNone, kNone}},
    {"PlusSign", "http://h:+80/", {"http", "h:+80", kNone, kNone, "h", 80, "/", "/", kNone, kNone}},
    {"LeadingWhiteSpace",
     "http://h: \t\n8080/",
     {"http", "h: \t\n8080", kNone, kNone, "h", 8080, "/", "/", kNone, kNone}},
    {"LeadingZeros",
     "http://h:00000000000000000000080",
     {"http", "h:00000000000000000000080", kNone, kNone, "h", 80, "/", "/", kNone, kNone}},
    {"OctalIsDecimal",
     "http://h:010/",
     {"http", "h:010", kNone, kNone, "h", 10, "/", "/", kNone, kNone}},
    {"NegativeThatWrapsIntoTheRange",
     "http://h:-18446744073709551615/",
     {"http", "h:-18446744073709551615", kNone, kNone, "h", 1, "/", "/", kNone, kNone}},
    {"PortWithoutHost",
     "http://:81/",
     {"http", ":81", kNone, kNone, "", 81, "/", "/", kNone, kNone}},

    /* users */
    {"User", "http://u@h/", {"http", "u@h", "u", kNone, "h", 80, "/", "/", kNone, kNone}},
    {"UserAndPort",
     "http://u@h:81/",
     {"http", "u@h:81", "u", kNone, "h", 81, "/", "/", kNone, kNone}},
    {"EmptyPassword", "http://u:@h", {"http", "u:@h", "u", "", "h", 80, "/", "/", kNone, kNone}},
    {"EmptyUserWithPassword",
     "http://:p@h",
     {"http", ":p@h", "", "p", "h", 80, "/", "/", kNone, kNone}},
    {"EmptyUser", "http://@h", {"http", "@h", "", kNone, "h", 80, "/", "/", kNone, kNone}},
    {"EmptyUserAndPassword", "http://:@", {"http", ":@", "", "", "", 80, "/", "/", kNone, kNone}},
    {"UserWithoutHost", "http://u@", {"http", "u@", "u", kNone, "", 80, "/", "/", kNone, kNone}},
    {"UserAndPortWithoutHost",
     "http://u@:81",
     {"http", "u@:81", "u", kNone, "", 81, "/", "/", kNone, kNone}},
    {"AtSignBehindTheSlash",
     "http://h/u@x:y@z:",
     {"http", "h", kNone, kNone, "h", 80, "/u@x:y@z:", "/u@x:y@z:", kNone, kNone}},

    /* brackets */
    {"Ipv6", "http://[::1]/", {"http", "[::1]", kNone, kNone, "::1", 80, "/", "/", kNone, kNone}},
    {"Ipv6AndPort",
     "http://[::1]:8080/x",
     {"http", "[::1]:8080", kNone, kNone, "::1", 8080, "/x", "/x", kNone, kNone}},
    {"Ipv6AndColon",
     "http://[::1]:/x",
     {"http", "[::1]:", kNone, kNone, "::1", 80, "/x", "/x", kNone, kNone}},
    {"UserAndIpv6",
     "http://u@[::1]/",
     {"http", "u@[::1]", "u", kNone, "::1", 80, "/", "/", kNone, kNone}},
    {"UserPasswordIpv6AndPort",
     "http://u:p@[fe80::1]:81/",
     {"http", "u:p@[fe80::1]:81", "u", "p", "fe80::1", 81, "/", "/", kNone, kNone}},
    {"Ipv6NeverClosed",
     "http://[::1",
     {"http", "[::1", kNone, kNone, "::1", 80, "/", "/", kNone, kNone}},
    {"Ipv6NeverClosedWithPath",
     "http://[::1/x",
     {"http", "[::1", kNone, kNone, "::1", 80, "/x", "/x", kNone, kNone}},
    {"TextBehindTheBracket",
     "http://[::1]abc/",
     {"http", "[::1]abc", kNone, kNone, "::1", 80, "/", "/", kNone, kNone}},
    {"TextAndPortBehindTheBracket",
     "http://[::1]x:81/",
     {"http", "[::1]x:81", kNone, kNone, "::1", 81, "/", "/", kNone, kNone}},
    {"EmptyBrackets", "http://[]/", {"http", "[]", kNone, kNone, "", 80, "/", "/", kNone, kNone}},
    {"OpenBracketAlone", "http://[", {"http", "[", kNone, kNone, "", 80, "/", "/", kNone, kNone}},
    {"BracketsInThePath",
     "http://h/a[b]c",
     {"http", "h", kNone, kNone, "h", 80, "/a[b]c", "/a[b]c", kNone, kNone}},

    /* local parts */
    {"QueryInTheHost",
     "http://host?x=1",
     {"http", "host?x=1", kNone, kNone, "host?x=1", 80, "/", "/", kNone, kNone}},
    {"FragmentInTheHost",
     "http://host#x",
     {"http", "host#x", kNone, kNone, "host#x", 80, "/", "/", kNone, kNone}},
    {"ParamsInTheHost",
     "http://host;x/y",
     {"http", "host;x", kNone, kNone, "host;x", 80, "/y", "/y", kNone, kNone}},
    {"Params", "http://h/a;b", {"http", "h", kNone, kNone, "h", 80, "/a;b", "/a", "b", kNone}},
    {"Query", "http://h/a?c", {"http", "h", kNone, kNone, "h", 80, "/a?c", "/a", kNone, "c"}},
    {"EmptyParamsAndQuery",
     "http://h/;?",
     {"http", "h", kNone, kNone, "h", 80, "/;?", "/", "", ""}},
    {"EmptyQuery", "http://h/?", {"http", "h", kNone, kNone, "h", 80, "/?", "/", kNone, ""}},
    {"EmptyParams", "http://h/;", {"http", "h", kNone, kNone, "h", 80, "/;", "/", "", kNone}},
    {"SecondParams",
     "http://h/a;b;c?d;e?f",
     {"http", "h", kNone, kNone, "h", 80, "/a;b;c?d;e?f", "/a", "b;c", "d;e?f"}},
    {"ParamsBehindTheQueryBelongToIt",
     "http://h/a?b;c",
     {"http", "h", kNone, kNone, "h", 80, "/a?b;c", "/a", kNone, "b;c"}},
    {"FragmentInThePath",
     "http://h/a#b",
     {"http", "h", kNone, kNone, "h", 80, "/a#b", "/a#b", kNone, kNone}},
    {"FragmentBeforeTheQuery",
     "http://h/a#b;c#d?e#f",
     {"http", "h", kNone, kNone, "h", 80, "/a#b;c#d?e#f", "/a#b", "c#d", "e#f"}},
    {"SlashesInThePath",
     "http://h//a/../b//",
     {"http", "h", kNone, kNone, "h", 80, "//a/../b//", "//a/../b//", kNone, kNone}},
    {"LocalPartBehindAPort",
     "http://h:81/a;b?c",
     {"http", "h:81", kNone, kNone, "h", 81, "/a;b?c", "/a", "b", "c"}},
    {"AnotherUrlInTheQuery",
     "http://h/?u=ftp://x@y:z/",
     {"http", "h", kNone, kNone, "h", 80, "/?u=ftp://x@y:z/", "/", kNone, "u=ftp://x@y:z/"}},
};

class VelurlAccepted : public Velurl, public testing::WithParamInterface<accepted_case> {};

TEST_P(VelurlAccepted, Fields)
{
    EXPECT_EQ(vel_url_set_url(url, GetParam().url.c_str()), VEL_ERROR_NONE);
    EXPECT_EQ(fields_of(url), GetParam().fields);
    if (GetParam().line)
        EXPECT_THAT(log.take(), ElementsAre(log_line{kModule, 13, GetParam().line}));
    else
        EXPECT_THAT(log.take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, VelurlAccepted, testing::ValuesIn(kAccepted), row_name());

/* Refused URLs */

struct refused_case {
    const char *name;
    std::string url;
    std::string line; /* of level 6 */
};

static void PrintTo(const refused_case &row, std::ostream *out)
{
    *out << row.url;
}

static std::string has(const char *url, const char *complaint)
{
    return "URL '" + std::string(url) + "' has " + complaint;
}

static const char kBadOpen[] = "'[' in hostname or username that does not start an IPv6 address";
static const char kBadClose[] = "']' in hostname or username that does not end an IPv6 address";
static const char kTwoUsers[] = "multiple user names ('@') in network locality";
static const char kAtBehindIpv6[] = "'@' in network locality after an IPv6 address";
static const char kTwoColons[] = "two colons in hostname or username";
static const char kBadPort[] = "the port number must be between 1-65535";

static const refused_case kRefused[] = {
    {"Empty", "", has("", "no colon after scheme")},
    {"NoColon", "http//h/", has("http//h/", "no colon after scheme")},
    {"NoSlashes", "http:h", has("http:h", "no :// after scheme")},
    {"OneSlash", "http:/h", has("http:/h", "no :// after scheme")},
    {"ColonAtTheEnd", "http:", has("http:", "no :// after scheme")},
    {"FirstColonCounts", "a:b://h", has("a:b://h", "no :// after scheme")},

    {"OpenInTheHost", "http://a[b]/", has("http://a[b]/", kBadOpen)},
    {"SecondOpen", "http://[[::1]/", has("http://[[::1]/", kBadOpen)},
    {"OpenBehindClose", "http://[::1][/", has("http://[::1][/", kBadOpen)},
    {"OpenInThePassword", "http://u:[p@h", has("http://u:[p@h", kBadOpen)},
    {"OpenInThePort", "http://h:[1", has("http://h:[1", kBadOpen)},
    {"CloseInTheHost", "http://a]/", has("http://a]/", kBadClose)},
    {"CloseAtTheBeginning", "http://]/", has("http://]/", kBadClose)},
    {"SecondClose", "http://[::1]]/", has("http://[::1]]/", kBadClose)},

    {"TwoUsers", "http://a@b@c/", has("http://a@b@c/", kTwoUsers)},
    {"TwoUsersBeforeTheIpv6Rule", "http://a@[::1]@c/", has("http://a@[::1]@c/", kTwoUsers)},
    {"AtBehindIpv6", "http://[::1]@h/", has("http://[::1]@h/", kAtBehindIpv6)},
    {"AtInIpv6", "http://[::1@h/", has("http://[::1@h/", kAtBehindIpv6)},
    {"AtBehindIpv6AndPort", "http://[::1]:2@h/", has("http://[::1]:2@h/", kAtBehindIpv6)},

    {"TwoColonsInTheUser", "http://a:b:c/", has("http://a:b:c/", kTwoColons)},
    {"TwoColonsInThePassword", "http://u:p:q@h/", has("http://u:p:q@h/", kTwoColons)},
    {"TwoPorts", "http://h:1:2/", has("http://h:1:2/", kTwoColons)},
    {"TwoPortsBehindIpv6", "http://[::1]:1:2/", has("http://[::1]:1:2/", kTwoColons)},
    {"BareIpv6", "http://::1/", has("http://::1/", kTwoColons)},
    {"BareIpv6BehindAUser", "http://u:p@::1/", has("http://u:p@::1/", kTwoColons)},

    {"PortZero", "http://h:0/", kBadPort},
    {"PortTooHigh", "http://h:65536/", kBadPort},
    {"PortWithoutDigits", "http://h:abc/", kBadPort},
    {"PortOverflows", "http://h:99999999999999999999999/", kBadPort},
    {"PortIsNotCutToThirtyTwoBits", "http://h:4294967376/", kBadPort},
    {"PortIsNegative", "http://h:-80/", kBadPort},
    {"PortIsBlank", "http://h: /", kBadPort},
    {"PortZeroBeforeAnInvalidCharacter", "http://h:0x50/", kBadPort},
    {"CharacterBehindThePort", "http://h:80x/", "invalid character 'x' in port number"},
    {"BlankBehindThePort", "http://h:80 /", "invalid character ' ' in port number"},
    {"QueryBehindThePort", "http://h:80?a", "invalid character '?' in port number"},
    {"FragmentBehindThePort", "http://h:80#a", "invalid character '#' in port number"},
    {"PasswordIsLogged", "http://u:secret@h@/", has("http://u:secret@h@/", kTwoUsers)},
};

class VelurlRefused : public Velurl, public testing::WithParamInterface<refused_case> {};

TEST_P(VelurlRefused, LogsAndKeepsTheFields)
{
    ASSERT_EQ(vel_url_set_url(url, "ftp://u:p@h:8080/a;b?c"), VEL_ERROR_NONE);
    const url_fields before = fields_of(url);
    log.clear();
    EXPECT_EQ(vel_url_set_url(url, GetParam().url.c_str()), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_THAT(log.take(), ElementsAre(log_line{kModule, 6, GetParam().line}));
    EXPECT_EQ(fields_of(url), before);
}

INSTANTIATE_TEST_SUITE_P(Table, VelurlRefused, testing::ValuesIn(kRefused), row_name());

/* One context */

TEST_F(Velurl, BeforeTheFirstParseAllFieldsAreAbsent)
{
    EXPECT_EQ(fields_of(url), url_fields{});
    EXPECT_EQ(vel_url_set_url(url, "nothing"), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(fields_of(url), url_fields{});
}

TEST_F(Velurl, ASuccessfulParseReplacesAllFields)
{
    EXPECT_EQ(vel_url_set_url(url, "http://u:p@h:8080/a;b?c"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_url_set_url(url, "ftp://x"), VEL_ERROR_NONE);
    EXPECT_EQ(fields_of(url),
              (url_fields{"ftp", "x", kNone, kNone, "x", 21, "/", "/", kNone, kNone}));
    EXPECT_EQ(vel_url_set_url(url, "http://u:p@h:8080/a;b?c"), VEL_ERROR_NONE);
    EXPECT_EQ(fields_of(url),
              (url_fields{"http", "u:p@h:8080", "u", "p", "h", 8080, "/a;b?c", "/a", "b", "c"}));
}

TEST_F(Velurl, TheTextIsCopied)
{
    char text[] = "http://h/a";
    EXPECT_EQ(vel_url_set_url(url, text), VEL_ERROR_NONE);
    text[7] = 'x';
    text[9] = 'x';
    EXPECT_STREQ(vel_url_get_host(url), "h");
    EXPECT_STREQ(vel_url_get_path(url), "/a");
}

TEST_F(Velurl, ABorrowedStringLivesUntilTheNextSuccessfulParse)
{
    EXPECT_EQ(vel_url_set_url(url, "http://h/a"), VEL_ERROR_NONE);
    const char *host = vel_url_get_host(url);
    EXPECT_EQ(vel_url_set_url(url, "http://x:0/"), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_STREQ(host, "h");
    EXPECT_EQ(vel_url_get_host(url), host);
}

TEST_F(Velurl, TheTextMayBeOneOfItsOwnFields)
{
    EXPECT_EQ(vel_url_set_url(url, "http://h/?ftp://x/y"), VEL_ERROR_NONE);
    EXPECT_EQ(vel_url_set_url(url, vel_url_get_query(url)), VEL_ERROR_NONE);
    EXPECT_EQ(fields_of(url),
              (url_fields{"ftp", "x", kNone, kNone, "x", 21, "/y", "/y", kNone, kNone}));
}

TEST_F(Velurl, LongFields)
{
    const std::string part(100000, 'x');
    const std::string text =
        part + "://" + part + ":" + part + "@" + part + ":9/" + part + ";" + part + "?" + part;
    EXPECT_EQ(vel_url_set_url(url, text.c_str()), VEL_ERROR_NONE);
    EXPECT_EQ(fields_of(url),
              (url_fields{part, part + ":" + part + "@" + part + ":9", part, part, part, 9,
                          "/" + part + ";" + part + "?" + part, "/" + part, part, part}));
}

/* Out of memory */

static log_line no_memory(const char *what)
{
    return {kModule, 7, "not enough memory for " + std::string(what)};
}

TEST(VelurlMemory, CreateLogsWhatWasMissing)
{
    log_capture log;
    const auto failures = allocfail_each(log, [] {
        velurl *url = vel_url_create();
        if (url)
            vel_url_destroy(url);
        return url != nullptr;
    });
    EXPECT_THAT(failures, ElementsAre(ElementsAre(no_memory("url parsing context"))));
}

TEST_F(Velurl, SetUrlLogsTheFieldThatFailedAndKeepsTheFields)
{
    ASSERT_EQ(vel_url_set_url(url, "ftp://h"), VEL_ERROR_NONE);
    const url_fields before = fields_of(url);
    const auto failures = allocfail_each(log, [this, &before] {
        const vel_error_t result = vel_url_set_url(url, "http://u:p@h:8080/a;b?c");
        if (result == VEL_ERROR_NONE)
            return true;
        EXPECT_EQ(result, VEL_ERROR_NO_MEMORY);
        EXPECT_EQ(fields_of(url), before);
        return false;
    });
    EXPECT_THAT(failures,
                ElementsAre(ElementsAre(no_memory("URL scheme")),
                            ElementsAre(no_memory("URL network location")),
                            ElementsAre(no_memory("username")), ElementsAre(no_memory("password")),
                            ElementsAre(no_memory("host")),
                            ElementsAre(no_memory("localpart part of the URL")),
                            ElementsAre(no_memory("path part of the URL")),
                            ElementsAre(no_memory("params part of the URL")),
                            ElementsAre(no_memory("query part of the URL"))));
}

TEST_F(Velurl, SetUrlLogsTheDefaultsThatFailed)
{
    const auto failures =
        allocfail_each(log, [this] { return vel_url_set_url(url, "http://h") == VEL_ERROR_NONE; });
    EXPECT_THAT(failures, ElementsAre(ElementsAre(no_memory("URL scheme")),
                                      ElementsAre(no_memory("URL network location")),
                                      ElementsAre(no_memory("host")),
                                      ElementsAre(no_memory("localpart part of the URL")),
                                      ElementsAre(no_memory("path part of the URL"))));
}

static bool url_life()
{
    velurl *url = vel_url_create();
    if (!url)
        return false;
    bool good = true;
    for (const char *text : {"http://u:p@h:8080/a;b?c", "http://h", "gopher://[::1]/x?y"})
        good = good && vel_url_set_url(url, text) == VEL_ERROR_NONE;
    EXPECT_NE(vel_url_set_url(url, "http://a@b@c/"), VEL_ERROR_NONE);
    if (good) {
        EXPECT_STREQ(vel_url_get_host(url), "::1");
    }
    vel_url_destroy(url);
    return good;
}

TEST(VelurlOom, Life)
{
    vel_oom_drive(url_life);
}

/* Assertions */

using VelurlDeathTest = Velurl;

TEST_F(VelurlDeathTest, DestroyAndSetAssertTheirArguments)
{
    EXPECT_DEATH(vel_url_destroy(nullptr), asserts("velurl != NULL", "vel_url_destroy"));
    EXPECT_DEATH(vel_url_set_url(nullptr, "http://h"),
                 asserts("velurl != NULL", "vel_url_set_url"));
    EXPECT_DEATH(vel_url_set_url(url, nullptr), asserts("url != NULL", "vel_url_set_url"));
}

TEST_F(VelurlDeathTest, GettersAssertTheContext)
{
    EXPECT_DEATH(vel_url_get_scheme(nullptr), asserts("velurl != NULL", "vel_url_get_scheme"));
    EXPECT_DEATH(vel_url_get_netloc(nullptr), asserts("velurl != NULL", "vel_url_get_netloc"));
    EXPECT_DEATH(vel_url_get_username(nullptr), asserts("velurl != NULL", "vel_url_get_username"));
    EXPECT_DEATH(vel_url_get_password(nullptr), asserts("velurl != NULL", "vel_url_get_password"));
    EXPECT_DEATH(vel_url_get_host(nullptr), asserts("velurl != NULL", "vel_url_get_host"));
    EXPECT_DEATH(vel_url_get_port(nullptr), asserts("velurl != NULL", "vel_url_get_port"));
    EXPECT_DEATH(vel_url_get_localpart(nullptr),
                 asserts("velurl != NULL", "vel_url_get_localpart"));
    EXPECT_DEATH(vel_url_get_path(nullptr), asserts("velurl != NULL", "vel_url_get_path"));
    EXPECT_DEATH(vel_url_get_params(nullptr), asserts("velurl != NULL", "vel_url_get_params"));
    EXPECT_DEATH(vel_url_get_query(nullptr), asserts("velurl != NULL", "vel_url_get_query"));
}
