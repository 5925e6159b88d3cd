/* Members come in the order of a hash table with its history. A document that is read from a long text
 * makes its tables late, if at all: here it stands beside one of a short text, which makes them at once,
 * and has to do and to say the same at every step. */
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsontest.h"
#include "support/logcapture.h"

using namespace support;

/* Blanks that make a text long. */
static const std::string kBlanks(16384, ' ');

using path = std::vector<std::string>;

static std::string visible(const log_lines &lines)
{
    std::string text;
    for (const log_line &line : lines)
        text += line.module + "[" + std::to_string(line.level) + "] " + line.text + "\n";
    return text;
}

static std::string output(veljson *document)
{
    char *const text = vel_json_output(document);
    const std::string result = text ? text : "no output";
    vel_free(text);
    return result;
}

class VeljsonOrder : public testing::Test {
  protected:
    size_t below(size_t limit)
    {
        return random() % limit;
    }

    std::string any_key(size_t keys)
    {
        static const char *const kPrefixes[] = {"", "key", "a longer key ", "k\\n"};
        return kPrefixes[below(4)] + std::to_string(below(keys));
    }

    /* An object of this many pairs, of which some have the same key. */
    std::string object(size_t pairs, size_t keys, int levels)
    {
        std::string text = "{";
        for (size_t i = 0; i < pairs; i++) {
            text += (i ? ",\"" : "\"") + any_key(keys) + "\":";
            if (levels > 0 && below(3) == 0)
                text += object(below(8), 1000, levels - 1);
            else
                text += below(2) ? std::to_string(i) + " " : "[\"x\"]";
        }
        return text + "}";
    }

    /* Reads a text as both kinds of document. */
    void read(const std::string &text)
    {
        ASSERT_LT(text.size(), kBlanks.size());
        log.take();
        ASSERT_EQ(vel_json_parse(byblock, text.c_str()), 0);
        const std::string said = visible(log.take());
        ASSERT_EQ(vel_json_parse(pooled, (kBlanks + text).c_str()), 0);
        ASSERT_EQ(visible(log.take()), said);
        ways.assign(1, {});
        note_ways(text);
    }

    /* Notes the keys of the text as ways from the root, right or wrong. */
    void note_ways(const std::string &text)
    {
        for (size_t at = text.find('"'); at != std::string::npos; at = text.find('"', at + 1)) {
            const size_t end = text.find('"', at + 1);
            std::string key = text.substr(at + 1, end - at - 1);
            if (const size_t escape = key.find("\\n"); escape != std::string::npos)
                key.replace(escape, 2, "\n");
            path way = below(2) ? path{} : ways[below(ways.size())];
            way.push_back(key);
            ways.push_back(way);
            at = end;
        }
    }

    static veljsonnode *node_at(veljson *document, const path &way, std::string *said)
    {
        veljsonnode *node = nullptr;
        vel_json_fetch_node(document, &node, nullptr);
        for (const std::string &key : way)
            if (vel_json_node_fetch_node(document, node, &node, key.c_str(), nullptr) < 0) {
                *said += "nothing at " + key;
                return nullptr;
            }
        return node;
    }

    static void enumerate(veljson *document, veljsonnode *node, std::string *said)
    {
        const char *key;
        veljsonnode *value;
        void *handle = vel_json_enumerate_start(document, node, &key, &value);
        for (; handle; handle = vel_json_enumerate_next(document, node, handle, &key, &value)) {
            EXPECT_NE(value, nullptr);
            *said += std::string(key) + ",";
        }
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(value, nullptr);
    }

    /* Does something at the end of a way, and tells what came of it. */
    std::string act(veljson *document, size_t what, const path &way, const std::string &key)
    {
        std::string said;
        veljsonnode *const node = node_at(document, way, &said);
        if (!node)
            return said;
        json_document copy("{}");
        switch (what) {
        case 0:
            return output(document);
        case 1:
            enumerate(document, node, &said);
            return said;
        case 2:
            return vel_json_node_object_add(document, node, key.c_str()) ? "added" : "not added";
        case 3:
            if (!vel_json_is_object(document, node))
                return "no object";
            EXPECT_EQ(vel_json_node_copy_node(copy, copy.root(), document, node), VEL_ERROR_NONE);
            return output(copy);
        case 4:
            return way.empty() ? "" : std::to_string(vel_json_node_set_string(document, node, "s"));
        case 5:
            return way.empty() ? "" : std::to_string(vel_json_node_set_object(document, node));
        case 6:
            return way.empty() ? "" : std::to_string(vel_json_node_set_null(document, node));
        default:
            return "found";
        }
    }

    /* Mostly looks, as that is where a table changes although nothing does. */
    void step()
    {
        const size_t what = below(3) ? 7 : below(7);
        const path way = ways[below(ways.size())];
        const std::string key = any_key(150);
        log.take();
        const std::string result = act(byblock, what, way, key);
        const std::string said = visible(log.take());
        ASSERT_EQ(act(pooled, what, way, key), result);
        ASSERT_EQ(visible(log.take()), said);
        if (result == "added") {
            ways.push_back(way);
            ways.back().push_back(key);
        }
    }

    log_capture log;
    std::mt19937 random{1};
    json_document byblock, pooled;
    std::vector<path> ways;
};

TEST_F(VeljsonOrder, OfEachNumberOfMembers)
{
    for (size_t members = 0; members <= 100; members++) {
        std::string text = "{";
        for (size_t i = 0; i < members; i++)
            text +=
                (i ? ",\"m" : "\"m") + std::to_string(i * 7919) + "\":" + std::to_string(i) + " ";
        ASSERT_NO_FATAL_FAILURE(read(text + "}"));
        ASSERT_EQ(output(pooled), output(byblock)) << members;
    }
}

/* Each look finds all there was before it, in the state in which a table of this number begins. */
TEST_F(VeljsonOrder, AfterOneLook)
{
    for (size_t members = 1; members <= 40; members++) {
        std::string text = "{";
        for (size_t i = 0; i < members; i++)
            text += (i ? ",\"" : "\"") + std::to_string(i * 31) + "\":{}";
        for (size_t i = 0; i <= members; i++) {
            ASSERT_NO_FATAL_FAILURE(read(text + "}"));
            const path way = {std::to_string(i * 31)};
            ASSERT_EQ(act(pooled, 7, way, ""), act(byblock, 7, way, ""));
            ASSERT_EQ(output(pooled), output(byblock)) << members << ", " << i;
        }
    }
}

TEST_F(VeljsonOrder, AgreesAfterEveryStep)
{
    for (int round = 0; round < 150; round++) {
        const size_t pairs = below(4) ? below(24) : below(120);
        ASSERT_NO_FATAL_FAILURE(read(object(pairs, below(2) ? 10000 : 20, 2))) << round;
        for (size_t steps = below(40); steps > 0; steps--)
            ASSERT_NO_FATAL_FAILURE(step()) << round;
        ASSERT_EQ(output(pooled), output(byblock)) << round;
    }
}

/* Nothing of it is walked through in vain, and nothing is left behind. */
TEST_F(VeljsonOrder, ChangesBelowWhatGoes)
{
    ASSERT_NO_FATAL_FAILURE(read(R"({"a":{"b":{"c":["d",{"e":{}}]},"f":{}},"a2":{"b":[1]}})"));
    for (veljson *document : {static_cast<veljson *>(byblock), static_cast<veljson *>(pooled)}) {
        veljsonnode *root = nullptr, *node = nullptr;
        ASSERT_EQ(vel_json_fetch_node(document, &root, nullptr), 0);
        ASSERT_EQ(vel_json_fetch_node(document, &node, "a", "b", "c", "#", 1ul, "e", nullptr), 0);
        ASSERT_NE(vel_json_node_object_add(document, node, "new"), nullptr);
        ASSERT_EQ(vel_json_fetch_node(document, &node, "a", "b", "c", "#", 0ul, nullptr), 0);
        ASSERT_EQ(vel_json_node_set_string(document, node, "another"), VEL_ERROR_NONE);
        ASSERT_EQ(vel_json_fetch_node(document, &node, "a2", "b", nullptr), 0);
        ASSERT_NE(vel_json_node_array_add(document, node), nullptr);
        ASSERT_EQ(output(document), R"({ "a": { "f": { }, "b": { "c": [ "another", { "e": )"
                                    R"({ "new": null } } ] } }, "a2": { "b": [ 1, null ] } })");
        ASSERT_NE(vel_json_node_object_add(document, root, "a"), nullptr);
        ASSERT_EQ(vel_json_fetch_node(document, &node, "a2", nullptr), 0);
        ASSERT_EQ(vel_json_node_set_true(document, node), VEL_ERROR_NONE);
    }
    EXPECT_EQ(output(pooled), output(byblock));
}

/* The document that is named need not be the one that has the node. */
TEST_F(VeljsonOrder, ChangesByTheNameOfAnother)
{
    ASSERT_NO_FATAL_FAILURE(read(R"({"a":["b"],"c":{}})"));
    veljsonnode *const array = pooled.member("a"), *const string = pooled.member("c");
    json_document other("[]");
    ASSERT_NE(vel_json_node_array_add(other, array), nullptr);
    ASSERT_EQ(vel_json_node_set_string(other, string, "long enough for a block"), VEL_ERROR_NONE);
    ASSERT_NE(vel_json_node_object_add(other, pooled.root(), "d"), nullptr);
    EXPECT_EQ(vel_json_is_null(pooled, pooled.member("d")), 1);
}
