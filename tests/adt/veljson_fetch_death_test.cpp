#include <cstdint>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/jsontest.h"

using namespace support;

class VeljsonFetchDeathTest : public testing::Test {
  protected:
    json_document document{"{\"a\":1}"};
    veljsonnode *root = document.root();
    veljsonnode *node = nullptr;
    const veljsonnode *constnode = nullptr;
    const char *string = nullptr;
    int integer = 0;
    int64_t int64 = 0;
    double number = 0;
};

static const char kDocument[] = "veljson != NULL";
static const char kValue[] = "valueptr != NULL";

TEST_F(VeljsonFetchDeathTest, Documents)
{
    EXPECT_DEATH(vel_json_fetch_node_const(nullptr, &constnode, nullptr),
                 asserts(kDocument, "vel_json_fetch_node_const"));
    EXPECT_DEATH(vel_json_fetch_node(nullptr, &node, nullptr),
                 asserts(kDocument, "vel_json_fetch_node"));
    EXPECT_DEATH(vel_json_fetch_string(nullptr, &string, nullptr),
                 asserts(kDocument, "vel_json_fetch_string"));
    EXPECT_DEATH(vel_json_fetch_int(nullptr, &integer, nullptr),
                 asserts(kDocument, "vel_json_fetch_int"));
    EXPECT_DEATH(vel_json_fetch_int64(nullptr, &int64, nullptr),
                 asserts(kDocument, "vel_json_fetch_int64"));
    EXPECT_DEATH(vel_json_fetch_double(nullptr, &number, nullptr),
                 asserts(kDocument, "vel_json_fetch_double"));
    EXPECT_DEATH(vel_json_fetch_boolean(nullptr, &integer, nullptr),
                 asserts(kDocument, "vel_json_fetch_boolean"));
    EXPECT_DEATH(vel_json_fetch_null(nullptr, &integer, nullptr),
                 asserts(kDocument, "vel_json_fetch_null"));
}

TEST_F(VeljsonFetchDeathTest, DocumentsBeforeNodes)
{
    EXPECT_DEATH(vel_json_node_fetch_node_const(nullptr, root, &constnode, nullptr),
                 asserts(kDocument, "vel_json_node_fetch_node_const"));
    EXPECT_DEATH(vel_json_node_fetch_node(nullptr, root, &node, nullptr),
                 asserts(kDocument, "vel_json_node_fetch_node"));
    EXPECT_DEATH(vel_json_node_fetch_string(nullptr, root, &string, nullptr),
                 asserts(kDocument, "vel_json_node_fetch_string"));
    EXPECT_DEATH(vel_json_node_fetch_int(nullptr, root, &integer, nullptr),
                 asserts(kDocument, "vel_json_node_fetch_int"));
    EXPECT_DEATH(vel_json_node_fetch_int64(nullptr, root, &int64, nullptr),
                 asserts(kDocument, "vel_json_node_fetch_int64"));
    EXPECT_DEATH(vel_json_node_fetch_double(nullptr, root, &number, nullptr),
                 asserts(kDocument, "vel_json_node_fetch_double"));
}

TEST_F(VeljsonFetchDeathTest, Outputs)
{
    EXPECT_DEATH(vel_json_fetch_node_const(document, nullptr, nullptr),
                 asserts("veljsonnodeptr != NULL", "vel_json_fetch_node_const"));
    EXPECT_DEATH(vel_json_fetch_node(document, nullptr, nullptr),
                 asserts("veljsonnodeptr != NULL", "vel_json_fetch_node"));
    EXPECT_DEATH(vel_json_fetch_string(document, nullptr, nullptr),
                 asserts("stringptr != NULL", "vel_json_fetch_string"));
    EXPECT_DEATH(vel_json_fetch_int(document, nullptr, nullptr),
                 asserts(kValue, "vel_json_fetch_int"));
    EXPECT_DEATH(vel_json_fetch_int64(document, nullptr, nullptr),
                 asserts(kValue, "vel_json_fetch_int64"));
    EXPECT_DEATH(vel_json_fetch_double(document, nullptr, nullptr),
                 asserts(kValue, "vel_json_fetch_double"));
    EXPECT_DEATH(vel_json_fetch_boolean(document, nullptr, nullptr),
                 asserts(kValue, "vel_json_fetch_boolean"));
    EXPECT_DEATH(vel_json_fetch_null(document, nullptr, nullptr),
                 asserts(kValue, "vel_json_fetch_null"));
}

TEST_F(VeljsonFetchDeathTest, OutputsBehindNodes)
{
    EXPECT_DEATH(vel_json_node_fetch_node_const(document, root, nullptr, nullptr),
                 asserts("veljsonnodeptr != NULL", "vel_json_node_fetch_node_const"));
    EXPECT_DEATH(vel_json_node_fetch_node(document, root, nullptr, nullptr),
                 asserts("veljsonnodeptr != NULL", "vel_json_node_fetch_node"));
    EXPECT_DEATH(vel_json_node_fetch_string(document, root, nullptr, nullptr),
                 asserts("stringptr != NULL", "vel_json_node_fetch_string"));
    EXPECT_DEATH(vel_json_node_fetch_int(document, root, nullptr, nullptr),
                 asserts(kValue, "vel_json_node_fetch_int"));
    EXPECT_DEATH(vel_json_node_fetch_int64(document, root, nullptr, nullptr),
                 asserts(kValue, "vel_json_node_fetch_int64"));
    EXPECT_DEATH(vel_json_node_fetch_double(document, root, nullptr, nullptr),
                 asserts(kValue, "vel_json_node_fetch_double"));
}

/* The walk gives no node, and that cannot be converted. */
TEST_F(VeljsonFetchDeathTest, ValuesOfAnEmptyDocument)
{
    json_document empty;
    EXPECT_DEATH(vel_json_fetch_int(empty, &integer, nullptr),
                 asserts("node != NULL", "vel_json_node_convert_int"));
    EXPECT_DEATH(vel_json_node_fetch_int64(empty, nullptr, &int64, nullptr),
                 asserts("node != NULL", "vel_json_node_convert_int"));
    EXPECT_DEATH(vel_json_fetch_double(empty, &number, nullptr),
                 asserts("node != NULL", "vel_json_node_convert_double"));
}

TEST_F(VeljsonFetchDeathTest, Stepping)
{
    EXPECT_DEATH(vel_json_node_fetch_next_const(nullptr, root),
                 asserts(kDocument, "vel_json_node_fetch_next_const"));
    EXPECT_DEATH(vel_json_node_fetch_next_const(document, nullptr),
                 asserts("node != NULL", "vel_json_node_fetch_next_const"));
    EXPECT_DEATH(vel_json_node_fetch_next(nullptr, root),
                 asserts(kDocument, "vel_json_node_fetch_next"));
    EXPECT_DEATH(vel_json_node_fetch_next(document, nullptr),
                 asserts("node != NULL", "vel_json_node_fetch_next"));
}

TEST_F(VeljsonFetchDeathTest, EnumerateStart)
{
    static const char kFunction[] = "vel_json_enumerate_start";
    EXPECT_DEATH(vel_json_enumerate_start(nullptr, root, &string, &node),
                 asserts(kDocument, kFunction));
    EXPECT_DEATH(vel_json_enumerate_start(document, nullptr, &string, &node),
                 asserts("objectnode != NULL", kFunction));
    EXPECT_DEATH(vel_json_enumerate_start(document, root, nullptr, &node),
                 asserts("keyptr != NULL", kFunction));
    EXPECT_DEATH(vel_json_enumerate_start(document, root, &string, nullptr),
                 asserts("nodeptr != NULL", kFunction));
}

TEST_F(VeljsonFetchDeathTest, EnumerateNext)
{
    static const char kFunction[] = "vel_json_enumerate_next";
    void *handle = vel_json_enumerate_start(document, root, &string, &node);
    EXPECT_DEATH(vel_json_enumerate_next(nullptr, root, handle, &string, &node),
                 asserts(kDocument, kFunction));
    EXPECT_DEATH(vel_json_enumerate_next(document, nullptr, handle, &string, &node),
                 asserts("objectnode != NULL", kFunction));
    EXPECT_DEATH(vel_json_enumerate_next(document, root, nullptr, &string, &node),
                 asserts("veljsonenumhandle != NULL", kFunction));
    EXPECT_DEATH(vel_json_enumerate_next(document, root, handle, nullptr, &node),
                 asserts("keyptr != NULL", kFunction));
    EXPECT_DEATH(vel_json_enumerate_next(document, root, handle, &string, nullptr),
                 asserts("nodeptr != NULL", kFunction));
}

struct type_test {
    const char *name;
    int (*is)(veljson *, const veljsonnode *);
};

static const type_test kTypeTests[] = {
    {"vel_json_is_object", vel_json_is_object},   {"vel_json_is_array", vel_json_is_array},
    {"vel_json_is_string", vel_json_is_string},   {"vel_json_is_number", vel_json_is_number},
    {"vel_json_is_integer", vel_json_is_integer}, {"vel_json_is_double", vel_json_is_double},
    {"vel_json_is_boolean", vel_json_is_boolean}, {"vel_json_is_true", vel_json_is_true},
    {"vel_json_is_false", vel_json_is_false},     {"vel_json_is_null", vel_json_is_null},
};

TEST_F(VeljsonFetchDeathTest, TypeTests)
{
    for (const type_test &test : kTypeTests) {
        EXPECT_DEATH(test.is(nullptr, root), asserts(kDocument, test.name));
        EXPECT_DEATH(test.is(document, nullptr), asserts("node != NULL", test.name));
    }
}
