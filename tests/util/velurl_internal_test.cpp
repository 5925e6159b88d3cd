#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velmalloc.h>

#include "support/logcapture.h"
#include "support/oom.h"
#include "support/rows.h"
#include "util/velurl_internal.h"

using log_lines = std::vector<support::log_line>;

static log_lines line(const std::string &text)
{
    return {{"util/velurl", 6, text}};
}

/* One function from text to text: authority of a URL, or host of an authority or a URL. */
struct find_case {
    const char *name;
    vel_error_t (*find)(const char *text, char **found);
    const char *text;
    const char *found; /* NULL where it fails */
    const char *logged;
};

static const find_case kFindCases[] = {
    {"Authority", vel_url_get_authority_from_url, "http://u:p@h:1/x", "u:p@h:1", nullptr},
    {"AuthorityWithoutPath", vel_url_get_authority_from_url, "http://h", "h", nullptr},
    {"AuthorityWithoutScheme", vel_url_get_authority_from_url, "//h/x", "h", nullptr},
    {"AuthorityBehindTheFirstSlashes", vel_url_get_authority_from_url, "a//b//c", "b", nullptr},
    {"AuthorityEndsAtQuery", vel_url_get_authority_from_url, "http://h?x", "h", nullptr},
    {"AuthorityEndsAtFragment", vel_url_get_authority_from_url, "http://h#x", "h", nullptr},
    {"SlashBeatsQuery", vel_url_get_authority_from_url, "http://host?x=/y", "host?x=", nullptr},
    {"SlashBeatsFragment", vel_url_get_authority_from_url, "http://h#x/y", "h#x", nullptr},
    {"QueryBeatsFragment", vel_url_get_authority_from_url, "http://h#x?y", "h#x", nullptr},
    {"NoSlashes", vel_url_get_authority_from_url, "mailto:a@b", nullptr,
     "URI 'mailto:a@b' does not contain authority"},
    {"OneSlash", vel_url_get_authority_from_url, "http:/h", nullptr,
     "URI 'http:/h' does not contain authority"},
    {"NothingBehind", vel_url_get_authority_from_url, "http://", nullptr,
     "URI 'http://' has empty authority"},
    {"BlanksBehind", vel_url_get_authority_from_url, "http://   ", nullptr,
     "URI 'http://   ' has empty authority"},
    {"BlanksAndPath", vel_url_get_authority_from_url, "http://  /x", "  ", nullptr},
    {"PathAtOnce", vel_url_get_authority_from_url, "http:///x", nullptr,
     "URI 'http:///x' has empty authority"},
    {"QueryAtOnce", vel_url_get_authority_from_url, "http://?x", nullptr,
     "URI 'http://?x' has empty authority"},

    {"Host", vel_url_get_host_from_authority, "h", "h", nullptr},
    {"HostOfAll", vel_url_get_host_from_authority, "u:p@h:1", "h", nullptr},
    {"HostBehindTheFirstAt", vel_url_get_host_from_authority, "a@b@c", "b@c", nullptr},
    {"HostBeforePort", vel_url_get_host_from_authority, ":80", "", nullptr},
    {"HostOfNothing", vel_url_get_host_from_authority, "", "", nullptr},
    {"HostInBrackets", vel_url_get_host_from_authority, "[::1]:80", "[", nullptr},
    {"NoHostBehindUser", vel_url_get_host_from_authority, "u@", nullptr,
     "URI authority 'u@' has empty host"},

    {"HostOfUrl", vel_url_get_host_from_url, "http://u:p@h.example:8080/a?b", "h.example", nullptr},
    {"UrlWithoutAuthority", vel_url_get_host_from_url, "h", nullptr,
     "URI 'h' does not contain authority"},
    {"UrlWithoutHost", vel_url_get_host_from_url, "http://u@/x", nullptr,
     "URI authority 'u@' has empty host"},
};

class VelurlFind : public testing::TestWithParam<find_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurlFind, testing::ValuesIn(kFindCases), support::row_name());

TEST_P(VelurlFind, Row)
{
    const find_case &row = GetParam();
    support::log_capture log;
    char dirt = 0, *found = &dirt;
    EXPECT_EQ(row.find(row.text, &found), row.found ? VEL_ERROR_NONE : VELURL_ERROR_INVALID);
    EXPECT_STREQ(found, row.found);
    EXPECT_EQ(log.take(), row.logged ? line(row.logged) : log_lines{});
    vel_free(found);
}

struct replace_case {
    const char *name;
    const char *url;
    const char *original;
    const char *replacement;
    const char *replaced; /* NULL where it fails */
    const char *logged;
};

static const replace_case kReplaceCases[] = {
    {"Longer", "http://h.x/a", "h.x", "xn--host.x", "http://xn--host.x/a", nullptr},
    {"Shorter", "http://host/a", "host", "h", "http://h/a", nullptr},
    {"AtTheEnd", "http://host", "host", "other", "http://other", nullptr},
    {"FirstAlone", "http://h@h/", "h", "new", "newttp://h@h/", nullptr},
    {"SchemeAndNotHost", "http://http/", "http", "ftp", "ftp://http/", nullptr},
    {"NothingByNothing", "http://x/", "", "", "http://x/", nullptr},
    {"NotThere", "http://a/", "b", "c", nullptr,
     "Original host 'b' is not a part of the URL 'http://a/'"},
    {"OriginalTooLong", "//a", "abcd", "c", nullptr, "Invalid URL '//a' or original host 'abcd'"},
    {"OriginalAsLong", "http", "abcd", "c", nullptr,
     "Original host 'abcd' is not a part of the URL 'http'"},
};

class VelurlReplaceHost : public testing::TestWithParam<replace_case> {};
INSTANTIATE_TEST_SUITE_P(Table, VelurlReplaceHost, testing::ValuesIn(kReplaceCases),
                         support::row_name());

/* The output is left alone on failure. */
TEST_P(VelurlReplaceHost, Row)
{
    const replace_case &row = GetParam();
    support::log_capture log;
    char dirt = 0, *replaced = &dirt;
    const vel_error_t result =
        vel_url_replace_host_in_url(row.url, row.original, row.replacement, &replaced);
    EXPECT_EQ(log.take(), row.logged ? line(row.logged) : log_lines{});
    if (row.replaced) {
        EXPECT_EQ(result, VEL_ERROR_NONE);
        EXPECT_STREQ(replaced, row.replaced);
        vel_free(replaced);
    } else {
        EXPECT_EQ(result, VELURL_ERROR_INVALID);
        EXPECT_EQ(replaced, &dirt);
    }
}

TEST(VelurlIsEmptyString, OnlyAsciiWhiteSpace)
{
    EXPECT_TRUE(vel_url_is_empty_string(""));
    EXPECT_TRUE(vel_url_is_empty_string(" \t\n\v\f\r"));
    EXPECT_FALSE(vel_url_is_empty_string(" x"));
    EXPECT_FALSE(vel_url_is_empty_string("x "));
    EXPECT_FALSE(vel_url_is_empty_string("\xa0"));         /* a blank in Latin-1 */
    EXPECT_FALSE(vel_url_is_empty_string("\xe3\x80\x80")); /* U+3000, a wide blank */
}

TEST(VelurlError, HasNoText)
{
    EXPECT_EQ(VELURL_ERROR_INVALID, 222);
    EXPECT_STREQ(vel_error_string(VELURL_ERROR_INVALID), "unknown error");
}

TEST(VelurlHostOom, Life)
{
    support::vel_oom_drive([] {
        char *host = nullptr, *replaced = nullptr;
        vel_error_t error = vel_url_get_host_from_url("http://u@host:80/x", &host);
        if (error == VEL_ERROR_NONE) {
            EXPECT_STREQ(host, "host");
            error = vel_url_replace_host_in_url("http://u@host:80/x", host, "h", &replaced);
        } else {
            EXPECT_EQ(host, nullptr);
        }
        vel_free(host);
        if (error != VEL_ERROR_NONE) {
            EXPECT_EQ(error, VEL_ERROR_NO_MEMORY);
            EXPECT_EQ(replaced, nullptr);
            return false;
        }
        EXPECT_STREQ(replaced, "http://u@h:80/x");
        vel_free(replaced);
        return true;
    });
}

TEST(VelurlHostDeathTest, AssertsEachPointer)
{
    char *text;
    EXPECT_DEATH(vel_url_get_authority_from_url(nullptr, &text), "url != NULL");
    EXPECT_DEATH(vel_url_get_authority_from_url("x", nullptr), "authority != NULL");
    EXPECT_DEATH(vel_url_get_host_from_authority(nullptr, &text), "authority != NULL");
    EXPECT_DEATH(vel_url_get_host_from_authority("x", nullptr), "host != NULL");
    EXPECT_DEATH(vel_url_get_host_from_url(nullptr, &text), "url != NULL");
    EXPECT_DEATH(vel_url_get_host_from_url("x", nullptr), "host != NULL");
    EXPECT_DEATH(vel_url_replace_host_in_url(nullptr, "h", "i", &text), "url != NULL");
    EXPECT_DEATH(vel_url_replace_host_in_url("u", nullptr, "i", &text), "original_host != NULL");
    EXPECT_DEATH(vel_url_replace_host_in_url("u", "h", nullptr, &text), "new_host != NULL");
    EXPECT_DEATH(vel_url_replace_host_in_url("u", "h", "i", nullptr), "new_url != NULL");
    EXPECT_DEATH(vel_url_is_empty_string(nullptr), "string != NULL");
}
