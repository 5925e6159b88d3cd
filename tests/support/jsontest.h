#ifndef TESTS_SUPPORT_JSONTEST_H
#define TESTS_SUPPORT_JSONTEST_H

#include <charconv>
#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/logcapture.h"

namespace support {

using log_lines = std::vector<log_line>;

/* A line of the JSON module. */
inline log_line json_line(int level, const std::string &text)
{
    return {"adt/veljson", level, text};
}

inline log_lines json_lines(log_capture &log)
{
    return log.take_from("adt/veljson");
}

/* A document that lives as long as this. */
class json_document {
  public:
    json_document() : json_(vel_json_create())
    {
        EXPECT_NE(json_, nullptr);
    }
    explicit json_document(const std::string &text) : json_document()
    {
        EXPECT_EQ(vel_json_parse(json_, text.c_str()), 0) << text;
    }
    ~json_document()
    {
        vel_json_destroy(json_);
    }
    json_document(const json_document &) = delete;
    json_document &operator=(const json_document &) = delete;

    operator veljson *() const
    {
        return json_;
    }

    /* The root, or NULL. */
    veljsonnode *root() const
    {
        const veljsonnode *found = nullptr;
        EXPECT_EQ(vel_json_fetch_node_const(json_, &found, nullptr), 0);
        return const_cast<veljsonnode *>(found);
    }

    /* What is found under a key of the root. */
    veljsonnode *member(const char *key) const
    {
        veljsonnode *found = nullptr;
        EXPECT_EQ(vel_json_fetch_node(json_, &found, key, nullptr), 0) << key;
        return found;
    }

    veljsonnode *element(unsigned long index) const
    {
        veljsonnode *found = nullptr;
        EXPECT_EQ(vel_json_fetch_node(json_, &found, "#", index, nullptr), 0) << index;
        return found;
    }

    std::string output() const
    {
        char *text = vel_json_output(json_);
        EXPECT_NE(text, nullptr);
        std::string copy = text ? text : "";
        vel_free(text);
        return copy;
    }

  private:
    veljson *json_;
};

/* A value as all that can be found out about it through the interface. */
struct json_value {
    unsigned int type = VEL_JSON_TYPE_NULL;
    std::string string = {};
    int64_t integer = 0;
    double number = 0;
    std::vector<json_value> elements = {};
    std::map<std::string, json_value> members = {};

    /* In one line, with the members sorted by their keys, strings as they are, and doubles with the
     * integer that they count as: {"a":[1,-1.5~-2,"text",null]}. */
    std::string text() const
    {
        switch (type) {
        case VEL_JSON_TYPE_OBJECT:
        case VEL_JSON_TYPE_ARRAY:
            return list();
        case VEL_JSON_TYPE_STRING:
            return "\"" + string + "\"";
        case VEL_JSON_TYPE_INTEGER:
            return std::to_string(integer);
        case VEL_JSON_TYPE_DOUBLE: {
            char digits[64];
            const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
            return std::string(digits, end) + "~" + std::to_string(integer);
        }
        case VEL_JSON_TYPE_TRUE:
            return "true";
        case VEL_JSON_TYPE_FALSE:
            return "false";
        case VEL_JSON_TYPE_NULL:
            return "null";
        default:
            return "?";
        }
    }

    bool operator==(const json_value &other) const
    {
        return text() == other.text();
    }

  private:
    std::string list() const
    {
        std::string result;
        for (const auto &[key, value] : members)
            result += ",\"" + key + "\":" + value.text();
        for (const json_value &element : elements)
            result += "," + element.text();
        if (!result.empty())
            result.erase(0, 1);
        return type == VEL_JSON_TYPE_OBJECT ? "{" + result + "}" : "[" + result + "]";
    }
};

inline std::ostream &operator<<(std::ostream &out, const json_value &value)
{
    return out << value.text();
}

/* The type of a node, on which all of the type tests have to agree. */
inline unsigned int json_type_of(veljson *json, const veljsonnode *node)
{
    static const std::pair<int (*)(veljson *, const veljsonnode *), unsigned int> kTests[] = {
        {vel_json_is_object, VEL_JSON_TYPE_OBJECT}, {vel_json_is_array, VEL_JSON_TYPE_ARRAY},
        {vel_json_is_string, VEL_JSON_TYPE_STRING}, {vel_json_is_integer, VEL_JSON_TYPE_INTEGER},
        {vel_json_is_double, VEL_JSON_TYPE_DOUBLE}, {vel_json_is_true, VEL_JSON_TYPE_TRUE},
        {vel_json_is_false, VEL_JSON_TYPE_FALSE},   {vel_json_is_null, VEL_JSON_TYPE_NULL},
    };
    unsigned int type = VEL_JSON_TYPE_NONE;
    int passed = 0;
    for (const auto &[test, result] : kTests) {
        const int is = test(json, node);
        EXPECT_TRUE(is == 0 || is == 1);
        if (is)
            type = result;
        passed += is;
    }
    EXPECT_EQ(passed, 1);
    EXPECT_EQ(vel_json_is_number(json, node),
              type == VEL_JSON_TYPE_INTEGER || type == VEL_JSON_TYPE_DOUBLE);
    EXPECT_EQ(vel_json_is_boolean(json, node),
              type == VEL_JSON_TYPE_TRUE || type == VEL_JSON_TYPE_FALSE);
    return type;
}

/* Looking for the elements of an empty array leaves a line in the log. */
json_value json_value_of(veljson *json, veljsonnode *node);

inline void json_take_members(json_value &value, veljson *json, veljsonnode *node)
{
    char dirt = 0;
    const char *key = &dirt;
    veljsonnode *member = node;
    void *handle = vel_json_enumerate_start(json, node, &key, &member);
    while (handle) {
        EXPECT_TRUE(value.members.emplace(key, json_value_of(json, member)).second) << key;
        handle = vel_json_enumerate_next(json, node, handle, &key, &member);
    }
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(member, nullptr);
}

inline json_value json_value_of(veljson *json, veljsonnode *node)
{
    json_value value;
    if (!node) {
        value.type = VEL_JSON_TYPE_NONE;
        return value;
    }
    value.type = json_type_of(json, node);
    if (value.type == VEL_JSON_TYPE_OBJECT) {
        json_take_members(value, json, node);
    } else if (value.type == VEL_JSON_TYPE_ARRAY) {
        veljsonnode *element = nullptr;
        (void)vel_json_node_fetch_node(json, node, &element, "#", 0ul, nullptr);
        for (; element; element = vel_json_node_fetch_next(json, element))
            value.elements.push_back(json_value_of(json, element));
    } else if (value.type == VEL_JSON_TYPE_STRING) {
        const char *string = nullptr;
        EXPECT_EQ(vel_json_node_fetch_string(json, node, &string, nullptr), 0);
        value.string = string ? string : "?";
    } else if (vel_json_is_number(json, node)) {
        EXPECT_EQ(vel_json_node_fetch_int64(json, node, &value.integer, nullptr), 0);
        EXPECT_EQ(vel_json_node_fetch_double(json, node, &value.number, nullptr), 0);
    }
    return value;
}

/* The text of all that is in a document, as json_value::text gives it; "" for an empty one. */
inline std::string json_text_of(const json_document &document)
{
    veljsonnode *root = document.root();
    return root ? json_value_of(document, root).text() : "";
}

/* Shows other bytes than printable ASCII by their numbers, in messages and in names. */
inline std::string json_visible(const std::string &bytes)
{
    std::string visible;
    for (const char byte : bytes) {
        char code[8];
        snprintf(code, sizeof code, "<%02x>", static_cast<unsigned char>(byte));
        visible += byte >= ' ' && byte < 127 ? std::string(1, byte) : code;
    }
    return visible;
}

} // namespace support

#endif
