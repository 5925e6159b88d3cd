/* Documents read from long texts, whose nodes come from chunks of memory. */
#include <gtest/gtest.h>

#include <string>

#include <vellib/veljson.h>
#include <vellib/velmalloc.h>

#include "support/guardedpages.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_malloc.h"

namespace {

const int kMembers = 3000;

/* An object of many members; every tenth comes twice, the second time with another value. */
std::string long_text()
{
    std::string text = "{";
    for (int i = 0; i < kMembers; i++) {
        const std::string key = "\"key" + std::to_string(i) + "\":";
        if (i % 10 == 0)
            text += key + "[\"old\"],";
        text += key + "{\"a\\n\":[" + std::to_string(i) + ",0.5,\"x\"],\"b\":{}},";
    }
    return text + "}";
}

std::string output(veljson *document)
{
    char *text = vel_json_output(document);
    std::string result = text ? text : "";
    vel_free(text);
    return result;
}

/* Makes a text long that it stands in. */
const std::string long_string(20000, 'x');

class VeljsonLong : public testing::Test {
  protected:
    void SetUp() override
    {
        document = vel_json_create();
        ASSERT_TRUE(document);
        ASSERT_EQ(vel_json_parse(document, long_text().c_str()), 0);
    }
    void TearDown() override
    {
        vel_json_destroy(document);
    }

    veljson *document = nullptr;
};

TEST_F(VeljsonLong, MembersHoldTheirLastValue)
{
    for (int i = 0; i < kMembers; i++) {
        const std::string key = "key" + std::to_string(i);
        int value = -1;
        ASSERT_EQ(vel_json_fetch_int(document, &value, key.c_str(), "a\n", "#", 0UL, nullptr), 0);
        ASSERT_EQ(value, i);
    }
}

TEST_F(VeljsonLong, SameTextAsWhenBuiltBlockByBlock)
{
    veljson *copy = vel_json_create();
    veljsonnode *root;

    ASSERT_EQ(vel_json_node_set_object(copy, nullptr), VEL_ERROR_NONE);
    ASSERT_EQ(vel_json_fetch_node(copy, &root, nullptr), 0);
    ASSERT_EQ(vel_json_node_copy(copy, root, document), VEL_ERROR_NONE);
    EXPECT_EQ(output(copy).size(), output(document).size());
    vel_json_destroy(copy);
}

TEST_F(VeljsonLong, NodesAreSetAndAddedTo)
{
    veljsonnode *node, *root;
    const char *string;

    ASSERT_EQ(vel_json_fetch_node(document, &root, nullptr), 0);
    for (int round = 0; round < 3; round++) {
        ASSERT_EQ(vel_json_fetch_node(document, &node, "key7", nullptr), 0);
        ASSERT_EQ(vel_json_node_set_string(document, node, "new"), VEL_ERROR_NONE);
        ASSERT_EQ(vel_json_fetch_node(document, &node, "key8", "a\n", nullptr), 0);
        node = vel_json_node_array_add(document, node);
        ASSERT_EQ(vel_json_node_set_string(document, node, "more"), VEL_ERROR_NONE);
        node = vel_json_node_object_add(document, root, "key9"); /* in place of a parsed one */
        ASSERT_EQ(vel_json_node_set_object(document, node), VEL_ERROR_NONE);
        node = vel_json_node_object_add(document, node, "added");
        ASSERT_EQ(vel_json_node_set_string(document, node, "value"), VEL_ERROR_NONE);
    }
    EXPECT_EQ(vel_json_fetch_string(document, &string, "key7", nullptr), 0);
    EXPECT_STREQ(string, "new");
    EXPECT_EQ(vel_json_fetch_string(document, &string, "key8", "a\n", "#", 5UL, nullptr), 0);
    EXPECT_STREQ(string, "more");
    EXPECT_EQ(vel_json_fetch_string(document, &string, "key9", "added", nullptr), 0);
    EXPECT_STREQ(string, "value");
}

TEST_F(VeljsonLong, RootIsSetAndTheDocumentReadAgain)
{
    ASSERT_EQ(vel_json_node_set_true(document, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(output(document), "true");
    ASSERT_EQ(vel_json_parse(document, "[1]"), 0);
    EXPECT_EQ(output(document), "[ 1 ]");
    ASSERT_EQ(vel_json_parse(document, long_text().c_str()), 0);
    EXPECT_EQ(vel_json_parse(document, (long_text() + "x").c_str()), -1);
    ASSERT_EQ(vel_json_node_set_null(document, nullptr), VEL_ERROR_NONE);
    EXPECT_EQ(output(document), "null");
}

/* Whole vectors are read, but none behind the text, whose strings begin at any address. */
TEST(VeljsonLongText, MayEndWhereMemoryEnds)
{
    const std::string blanks(16384, ' ');
    const support::guarded_pages pages;
    veljson *document = vel_json_create();
    const char *found;
    double number;

    for (size_t length = 0; length <= 100; length++)
        for (const char *end :
             {"]", " ]", ",]", "] ", "]       ", "]\n\n\n\n\n\n\n\n\n\n\n\n\n\n\n\n\n"}) {
            const std::string string(length, 's'), digits(length + 1, '5');
            std::string text = blanks + "[{\"" + string + "\":0.5},\"" + string + "\"" + end;
            const void *placed = pages.place(text.c_str(), text.size() + 1);
            ASSERT_EQ(vel_json_parse(document, static_cast<const char *>(placed)), 0) << text;
            ASSERT_EQ(vel_json_fetch_string(document, &found, "#", 1UL, nullptr), 0);
            ASSERT_EQ(found, string);
            ASSERT_EQ(vel_json_fetch_double(document, &number, "#", 0UL, string.c_str(), nullptr),
                      0);
            ASSERT_EQ(number, 0.5);

            text = blanks + "[\"\\n" + string + "\",0." + digits + end;
            placed = pages.place(text.c_str(), text.size() + 1);
            ASSERT_EQ(vel_json_parse(document, static_cast<const char *>(placed)), 0) << text;
            ASSERT_EQ(vel_json_fetch_string(document, &found, "#", 0UL, nullptr), 0);
            ASSERT_EQ(found, "\n" + string);
            ASSERT_EQ(vel_json_fetch_double(document, &number, "#", 1UL, nullptr), 0);
            ASSERT_EQ(number, std::stod("0." + digits));
        }
    for (size_t length = 0; length <= 100; length++) /* an object may lack its end */
        for (const char *end : {"\"", "\",", "\"}"}) {
            const std::string string(length, 's');
            const std::string text = blanks + "{\"key\":\"" + string + end;
            const void *placed = pages.place(text.c_str(), text.size() + 1);
            ASSERT_EQ(vel_json_parse(document, static_cast<const char *>(placed)), 0) << text;
            ASSERT_EQ(vel_json_fetch_string(document, &found, "key", nullptr), 0);
            ASSERT_EQ(found, string);
        }
    vel_json_destroy(document);
}

/* Strings that do not fit into a chunk. */
TEST(VeljsonLongString, HasAChunkToItself)
{
    const std::string string(9000000, 's');
    veljson *document = vel_json_create();

    const std::string text =
        "[\"" + string + "\",\"" + string + "\",\"" + string + "\",\"\\n" + string + "\"]";
    ASSERT_EQ(vel_json_parse(document, text.c_str()), 0);
    for (unsigned long i = 0; i < 4; i++) {
        const char *found;
        ASSERT_EQ(vel_json_fetch_string(document, &found, "#", i, nullptr), 0);
        EXPECT_TRUE((i == 3 ? "\n" + string : string) == found) << i;
    }

    /* The context, the first chunk, and then that of the last string. */
    support::log_capture log;
    int told = 0;
    for (size_t number = 3; number <= 6; number++) {
        log.clear();
        support::malloc_watch watch(number, number);
        if (vel_json_parse(document, text.c_str()) == -1)
            told += log.take() == std::vector<support::log_line>{
                                      {"adt/veljson", 7, "not enough memory for decoded string"},
                                      {"adt/veljson", 7, "unable to decode the string"},
                                      {"adt/veljson", 13, "unable to parse an array element"}};
    }
    EXPECT_EQ(told, 1);
    vel_json_destroy(document);
}

/* Two keys with the same hash, in a short text and in a long one. */
TEST(VeljsonLongKeys, WithTheSameHash)
{
    for (const char *padding : {"", long_string.c_str()}) {
        veljson *document = vel_json_create();
        const std::string text =
            std::string("{\"AAAAAAA@xxxxxxxb\":1,\"AAAAAAAAxxxxxxxB\":2,\"\":\"") + padding +
            "\",\"AAAAAAA@xxxxxxxb\":3}";
        int first = 0, second = 0;
        EXPECT_EQ(vel_json_parse(document, text.c_str()), 0);
        EXPECT_EQ(vel_json_fetch_int(document, &first, "AAAAAAA@xxxxxxxb", nullptr), 0);
        EXPECT_EQ(vel_json_fetch_int(document, &second, "AAAAAAAAxxxxxxxB", nullptr), 0);
        EXPECT_EQ(first, 3);
        EXPECT_EQ(second, 2);
        vel_json_destroy(document);
    }
}

/* What cannot be decoded is told as in a short text. */
TEST(VeljsonLongString, ThatCannotBeDecoded)
{
    support::log_capture log;
    for (const char *bad : {"\\q", "\\u12", "\\ud83d", "\\ud83dx", "\\udc00"}) {
        std::vector<std::vector<support::log_line>> said;
        for (const std::string &before : {std::string(), long_string}) {
            veljson *document = vel_json_create();
            log.clear();
            EXPECT_EQ(vel_json_parse(document, ("[\"" + before + bad + "\"]").c_str()), -1) << bad;
            said.push_back(log.take());
            vel_json_destroy(document);
        }
        EXPECT_EQ(said[0].empty(), false) << bad;
        EXPECT_EQ(said[0], said[1]) << bad;
    }
}

/* A text grows where a string is escaped, and where there is a key. */
TEST(VeljsonLongOutput, EachAllocationMayFail)
{
    std::string strings = "[", keys = "{";
    for (int i = 0; i < 700; i++) {
        strings += "\"" + std::string(20, 'x') + "\\n\",";
        keys += "\"" + std::string(40, 'k') + std::to_string(i) + "\":0,";
    }
    support::log_capture log;
    for (const std::string &source : {strings + "]", keys + "}"}) {
        veljson *document = vel_json_create();
        ASSERT_EQ(vel_json_parse(document, source.c_str()), 0);
        const std::string expected = output(document);
        size_t failures = 0;
        std::string got;
        while (got.empty() && failures < 1000) {
            log.clear();
            support::malloc_watch watch(failures + 1, failures + 1);
            got = output(document);
            failures += got.empty();
        }
        EXPECT_EQ(got, expected);
        EXPECT_GT(failures, 4u);
        vel_json_destroy(document);
    }
}

/* Only an array that cannot grow its table goes unseen: it is tried again with the next member. */
TEST(VeljsonLongFailure, EachAllocationMayFail)
{
    std::string text = long_text();
    text.resize(text.rfind(",\"key", 40000));
    text += "}";
    support::log_capture log;
    veljson *document = vel_json_create();
    size_t failures = 0;

    for (size_t number = 1; number < 10; number++) {
        support::malloc_watch watch(number, number);
        if (vel_json_parse(document, text.c_str()) < 0)
            failures++;
    }
    EXPECT_GT(failures, 2U); /* the context, the nodes, and the memory promised for tables */
    EXPECT_EQ(vel_json_parse(document, text.c_str()), 0);
    vel_json_destroy(document);
    log.take();
}

bool life()
{
    veljson *document = vel_json_create();
    if (!document)
        return false;
    const bool done = vel_json_parse(document, long_text().c_str()) == 0;
    vel_json_destroy(document);
    return done;
}

TEST(VeljsonLongOom, Life)
{
    EXPECT_GT(support::vel_oom_drive(life), 5U);
}

} // namespace
