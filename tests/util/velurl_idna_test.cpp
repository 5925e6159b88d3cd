#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/punycode.h"
#include "support/rows.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

using log_lines = std::vector<log_line>;
using name_function = vel_error_t (*)(const char *, char **);

static const char kModule[] = "util/velurl";
static const vel_error_t kInvalid = 222;

/* Hosts: *result is written whatever happens. */

struct host_case {
    const char *name;
    name_function convert;
    const char *host;
    vel_error_t error;
    const char *result; /* NULL where it fails */
    const char *logged = nullptr;
};

static void PrintTo(const host_case &row, std::ostream *out)
{
    *out << row.host;
}

static const host_case kHostCases[] = {
    {"Ascii", vel_url_idna_host_to_ascii, "WWW.Example.org", VEL_ERROR_NONE, "WWW.Example.org"},
    {"SecondLabel", vel_url_idna_host_to_ascii, "a.bücher", VEL_ERROR_NONE, "a.xn--bcher-kva"},
    {"EveryLabel", vel_url_idna_host_to_ascii, "ü.Ü.ß", VEL_ERROR_NONE, "xn--tda.xn--wca.xn--zca"},
    {"PrefixedAscii", vel_url_idna_host_to_ascii, "xn--bcher-kva.x", VEL_ERROR_NONE,
     "xn--bcher-kva.x"},
    {"PrefixAlone", vel_url_idna_host_to_ascii, "xn--", VEL_ERROR_NONE, "xn--"},
    {"PrefixedUmlaut", vel_url_idna_host_to_ascii, "xn--ü", VEL_ERROR_NONE, "xn--xn---3ra"},
    {"EmptyHost", vel_url_idna_host_to_ascii, "", VEL_ERROR_NONE, ""},
    {"EmptyLabels", vel_url_idna_host_to_ascii, "a..b.", VEL_ERROR_NONE, "a..b."},
    {"EmptyLabelsAround", vel_url_idna_host_to_ascii, ".ü..", VEL_ERROR_NONE, ".xn--tda.."},
    {"OnlyDots", vel_url_idna_host_to_ascii, "...", VEL_ERROR_NONE, "..."},
    {"OtherFullStop", vel_url_idna_host_to_ascii, "a。b", VEL_ERROR_NONE, "xn--ab-r13a"},
    {"NothingIsChecked", vel_url_idna_host_to_ascii, " %\x7F:/", VEL_ERROR_NONE, " %\x7F:/"},
    {"BadUtf8", vel_url_idna_host_to_ascii, "a.\xFF", VEL_ERROR_GENERIC, nullptr,
     "invalid UTF-8 first byte 0xff"},
    {"BadUtf8BehindAGoodLabel", vel_url_idna_host_to_ascii, "ü.\xC3.ä", VEL_ERROR_GENERIC, nullptr,
     "invalid UTF-8 continuation byte 0x00"},

    {"AsciiStays", vel_url_idna_host_to_unicode, "WWW.Example.org", VEL_ERROR_NONE,
     "WWW.Example.org"},
    {"Back", vel_url_idna_host_to_unicode, "a.xn--bcher-kva", VEL_ERROR_NONE, "a.bücher"},
    {"EveryLabelBack", vel_url_idna_host_to_unicode, "xn--tda.xn--wca.xn--zca", VEL_ERROR_NONE,
     "ü.Ü.ß"},
    {"UpperCaseDigits", vel_url_idna_host_to_unicode, "xn--bcher-KVA", VEL_ERROR_NONE, "bücher"},
    {"UpperCasePrefix", vel_url_idna_host_to_unicode, "Xn--abc.xN--abc", VEL_ERROR_NONE,
     "Xn--abc.xN--abc"},
    {"PrefixInTheMiddle", vel_url_idna_host_to_unicode, "axn--tda", VEL_ERROR_NONE, "axn--tda"},
    {"CutPrefix", vel_url_idna_host_to_unicode, "xn-.xn.x", VEL_ERROR_NONE, "xn-.xn.x"},
    {"DecodedAscii", vel_url_idna_host_to_unicode, "xn--abc-", VEL_ERROR_NONE, "abc"},
    {"DecodedPrefix", vel_url_idna_host_to_unicode, "xn--xn---3ra", VEL_ERROR_NONE, "xn--ü"},
    {"UnicodeStays", vel_url_idna_host_to_unicode, "bücher.xn--tda", VEL_ERROR_NONE, "bücher.ü"},
    {"OtherBytesStay", vel_url_idna_host_to_unicode, "\xFF", VEL_ERROR_NONE, "\xFF"},
    {"EmptyHostBack", vel_url_idna_host_to_unicode, "", VEL_ERROR_NONE, ""},
    {"EmptyLabelsBack", vel_url_idna_host_to_unicode, "a..xn--tda.", VEL_ERROR_NONE, "a..ü."},
    {"NoPunycode", vel_url_idna_host_to_unicode, "a.xn---abc", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"CutPunycode", vel_url_idna_host_to_unicode, "xn--bcher-kv.a", VEL_ERROR_OUT_OF_RANGE,
     nullptr},
    {"UmlautAsDigit", vel_url_idna_host_to_unicode, "xn--ü", VEL_ERROR_OUT_OF_RANGE, nullptr},
    {"Surrogate", vel_url_idna_host_to_unicode, "xn--ib9b", VEL_ERROR_GENERIC, nullptr,
     "end of wide character string in the middle of surrogate pairs, first surrogate 0xd800"},
    {"BadUtf8BehindThePrefix", vel_url_idna_host_to_unicode, "xn--\xFF", VEL_ERROR_GENERIC, nullptr,
     "invalid UTF-8 first byte 0xff"},
};

class VelurlIdnaHost : public testing::TestWithParam<host_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurlIdnaHost, testing::ValuesIn(kHostCases), row_name());

TEST_P(VelurlIdnaHost, Row)
{
    const host_case &row = GetParam();
    log_capture log;
    char dirt = 0, *result = &dirt;
    EXPECT_EQ(row.convert(row.host, &result), row.error);
    EXPECT_STREQ(result, row.result);
    vel_free(result);
    EXPECT_EQ(log.take(),
              row.logged ? log_lines({{punycode_wchar_set::module, 6, row.logged}}) : log_lines());
}

static void expect_both_ways(const std::string &names, const std::string &hosts)
{
    char *result = nullptr;
    EXPECT_EQ(vel_url_idna_host_to_ascii(names.c_str(), &result), VEL_ERROR_NONE);
    EXPECT_EQ(result, hosts);
    vel_free(result);
    EXPECT_EQ(vel_url_idna_host_to_unicode(hosts.c_str(), &result), VEL_ERROR_NONE);
    EXPECT_EQ(result, names);
    vel_free(result);
}

TEST(VelurlIdna, EverySampleIsALabel)
{
    std::string names, hosts;
    for (const punycode_sample &sample : kPunycodeSamples) {
        if (std::string(sample.name) == "AsciiAlone")
            continue;
        names += std::string(sample.utf8) + ".";
        hosts += std::string("xn--") + sample.punycode + ".";
    }
    expect_both_ways(names, hosts);
}

TEST(VelurlIdna, ThousandsOfLabels)
{
    std::string names, hosts;
    for (int turn = 0; turn < 5000; turn++) {
        names += turn % 3 ? "a." : "bücher.";
        hosts += turn % 3 ? "a." : "xn--bcher-kva.";
    }
    expect_both_ways(names, hosts);
}

/* URLs: on failure *result is not written. */

struct url_case {
    const char *name;
    name_function convert;
    const char *url;
    vel_error_t error;
    const char *result;
    const char *module = nullptr;
    const char *logged = nullptr;
};

static void PrintTo(const url_case &row, std::ostream *out)
{
    *out << row.url;
}

static const url_case kUrlCases[] = {
    {"Host", vel_url_idna_url_to_ascii, "http://www.bücher.example/ü?ü#ü", VEL_ERROR_NONE,
     "http://www.xn--bcher-kva.example/ü?ü#ü"},
    {"HostBack", vel_url_idna_url_to_unicode, "http://www.xn--bcher-kva.example/xn--tda",
     VEL_ERROR_NONE, "http://www.bücher.example/xn--tda"},
    {"UserAndPort", vel_url_idna_url_to_ascii, "http://u:p@ü:80/", VEL_ERROR_NONE,
     "http://u:p@xn--tda:80/"},
    {"UserAndPortBack", vel_url_idna_url_to_unicode, "http://u:p@xn--tda:80/", VEL_ERROR_NONE,
     "http://u:p@ü:80/"},
    {"Ascii", vel_url_idna_url_to_ascii, "HTTP://Host/", VEL_ERROR_NONE, "HTTP://Host/"},
    {"WithoutScheme", vel_url_idna_url_to_ascii, "//ü", VEL_ERROR_NONE, "//xn--tda"},
    {"OnlyTheUserName", vel_url_idna_url_to_ascii, "http://ü@ü/", VEL_ERROR_NONE,
     "http://xn--tda@ü/"},
    {"OnlyTheScheme", vel_url_idna_url_to_unicode, "xn--tda://xn--tda/", VEL_ERROR_NONE,
     "ü://xn--tda/"},
    {"PartOfTheUserName", vel_url_idna_url_to_ascii, "http://füchse@ü/", VEL_ERROR_NONE,
     "http://fxn--tdachse@ü/"},
    {"Ipv6", vel_url_idna_url_to_ascii, "http://[::1]:80/", VEL_ERROR_NONE, "http://[::1]:80/"},
    {"Ipv6Back", vel_url_idna_url_to_unicode, "http://[::1]:80/", VEL_ERROR_NONE,
     "http://[::1]:80/"},
    {"EmptyHost", vel_url_idna_url_to_ascii, "http://:80/ü", VEL_ERROR_NONE, "http://:80/ü"},
    {"EndsAtTheQuery", vel_url_idna_url_to_ascii, "http://ü?ü", VEL_ERROR_NONE, "http://xn--tda?ü"},
    {"SlashBeatsQuery", vel_url_idna_url_to_ascii, "http://a?ü/", VEL_ERROR_NONE,
     "http://xn--a?-yka/"},

    {"NoAuthority", vel_url_idna_url_to_ascii, "mailto:a@b", kInvalid, nullptr, kModule,
     "URI 'mailto:a@b' does not contain authority"},
    {"NoAuthorityBack", vel_url_idna_url_to_unicode, "", kInvalid, nullptr, kModule,
     "URI '' does not contain authority"},
    {"EmptyAuthority", vel_url_idna_url_to_ascii, "http:///ü", kInvalid, nullptr, kModule,
     "URI 'http:///ü' has empty authority"},
    {"EmptyAuthorityBack", vel_url_idna_url_to_unicode, "http://", kInvalid, nullptr, kModule,
     "URI 'http://' has empty authority"},
    {"NoHostBehindTheUser", vel_url_idna_url_to_ascii, "http://u@/", kInvalid, nullptr, kModule,
     "URI authority 'u@' has empty host"},
    {"BadUtf8", vel_url_idna_url_to_ascii, "http://\xFF/", VEL_ERROR_GENERIC, nullptr,
     punycode_wchar_set::module, "invalid UTF-8 first byte 0xff"},
    {"NoPunycode", vel_url_idna_url_to_unicode, "http://xn---abc/", VEL_ERROR_OUT_OF_RANGE,
     nullptr},
};

class VelurlIdnaUrl : public testing::TestWithParam<url_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurlIdnaUrl, testing::ValuesIn(kUrlCases), row_name());

TEST_P(VelurlIdnaUrl, Row)
{
    const url_case &row = GetParam();
    log_capture log;
    char dirt = 0, *result = &dirt;
    EXPECT_EQ(row.convert(row.url, &result), row.error);
    EXPECT_EQ(log.take(), row.logged ? log_lines({{row.module, 6, row.logged}}) : log_lines());
    if (!row.result) {
        EXPECT_EQ(result, &dirt);
        return;
    }
    EXPECT_STREQ(result, row.result);
    vel_free(result);
}

/* Arguments */

struct argument_case {
    const char *name;
    name_function convert;
    const char *logged;
};

static const argument_case kArgumentCases[] = {
    {"HostToAscii", vel_url_idna_host_to_ascii, "Invalid argument: host cannot be null"},
    {"HostToUnicode", vel_url_idna_host_to_unicode, "Invalid argument: host cannot be null"},
    {"UrlToAscii", vel_url_idna_url_to_ascii, "Invalid argument: url cannot be null"},
    {"UrlToUnicode", vel_url_idna_url_to_unicode, "Invalid argument: url cannot be null"},
};

class VelurlIdnaArgument : public testing::TestWithParam<argument_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurlIdnaArgument, testing::ValuesIn(kArgumentCases), row_name());

TEST_P(VelurlIdnaArgument, NullIsRefused)
{
    log_capture log;
    char dirt = 0, *result = &dirt;
    EXPECT_EQ(GetParam().convert(nullptr, &result), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(log.take(), (log_lines{{kModule, 6, GetParam().logged}}));

    const log_lines noresult = {{kModule, 6, "Invalid argument: result cannot be null"}};
    EXPECT_EQ(GetParam().convert("http://a", nullptr), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(log.take(), noresult);
    EXPECT_EQ(GetParam().convert(nullptr, nullptr), VEL_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(log.take(), noresult);
}

/* Out of memory */

struct memory_case {
    const char *name;
    name_function convert;
    const char *input;
    std::vector<vel_error_t> codes; /* in the order of the allocations, runs of one code once */
    bool written;                   /* the output, on failure */
};

static void PrintTo(const memory_case &row, std::ostream *out)
{
    *out << row.input;
}

static const memory_case kMemoryCases[] = {
    {"AsciiHost", vel_url_idna_host_to_ascii, "a.b", {VEL_ERROR_NO_MEMORY}, true},
    {"AsciiHostBack", vel_url_idna_host_to_unicode, "a.b", {VEL_ERROR_NO_MEMORY}, true},
    {"Host",
     vel_url_idna_host_to_ascii,
     "ü",
     {VEL_ERROR_NO_MEMORY, VEL_ERROR_GENERIC, VEL_ERROR_NO_MEMORY, VEL_ERROR_GENERIC,
      VEL_ERROR_NO_MEMORY},
     true},
    {"HostBack",
     vel_url_idna_host_to_unicode,
     "xn--tda",
     {VEL_ERROR_NO_MEMORY, VEL_ERROR_GENERIC, VEL_ERROR_NO_MEMORY, VEL_ERROR_GENERIC,
      VEL_ERROR_NO_MEMORY},
     true},
    {"AsciiUrl", vel_url_idna_url_to_ascii, "http://a/", {VEL_ERROR_NO_MEMORY}, false},
    {"AsciiUrlBack", vel_url_idna_url_to_unicode, "http://a/", {VEL_ERROR_NO_MEMORY}, false},
};

class VelurlIdnaMemory : public testing::TestWithParam<memory_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurlIdnaMemory, testing::ValuesIn(kMemoryCases), row_name());

TEST_P(VelurlIdnaMemory, Codes)
{
    const memory_case &row = GetParam();
    log_capture log;
    std::vector<vel_error_t> codes;
    const auto failures = allocfail_each(log, [&row, &codes] {
        char dirt = 0, *result = &dirt;
        const vel_error_t error = row.convert(row.input, &result);
        if (error == VEL_ERROR_NONE) {
            vel_free(result);
            return true;
        }
        if (codes.empty() || codes.back() != error)
            codes.push_back(error);
        EXPECT_EQ(result, row.written ? nullptr : &dirt);
        return false;
    });
    EXPECT_EQ(codes, row.codes);
    EXPECT_THAT(failures, testing::Each(IsEmpty()));
}

TEST(VelurlIdnaOom, Life)
{
    vel_oom_drive([] {
        char *text = nullptr, *back = nullptr;
        const bool good =
            vel_url_idna_url_to_ascii("http://u@a.bücher.ü:80/x", &text) == VEL_ERROR_NONE &&
            vel_url_idna_url_to_unicode(text, &back) == VEL_ERROR_NONE;
        if (good) {
            EXPECT_STREQ(text, "http://u@a.xn--bcher-kva.xn--tda:80/x");
            EXPECT_STREQ(back, "http://u@a.bücher.ü:80/x");
        }
        vel_free(text);
        vel_free(back);
        return good;
    });
}

TEST(VelurlIdnaDeathTest, ThePrefixAloneIsAsserted)
{
    char *result;
    EXPECT_DEATH(vel_url_idna_host_to_unicode("xn--", &result), asserts("buffer != NULL"));
    EXPECT_DEATH(vel_url_idna_host_to_unicode("a.xn--.b", &result), asserts("buffer != NULL"));
    EXPECT_DEATH(vel_url_idna_url_to_unicode("http://xn--/", &result), asserts("buffer != NULL"));
}
