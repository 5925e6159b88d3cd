#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsontest.h"
#include "support/logcapture.h"

using namespace support;

/* The way to a value: keys and indices. */
struct model_step {
    bool isindex;
    std::string key;
    unsigned long index;

    bool operator==(const model_step &) const = default;
};

using model_path = std::vector<model_step>;

static json_value &value_at(json_value &root, const model_path &path)
{
    json_value *value = &root;
    for (const model_step &step : path)
        value = step.isindex ? &value->elements[step.index] : &value->members[step.key];
    return *value;
}

static size_t count_of(const json_value &value)
{
    size_t count = 1;
    for (const json_value &element : value.elements)
        count += count_of(element);
    for (const auto &[key, member] : value.members)
        count += count_of(member);
    return count;
}

/* What is left of a value that is written and parsed again. */
static json_value written_and_parsed(json_value value)
{
    for (json_value &element : value.elements)
        element = written_and_parsed(element);
    for (auto &[key, member] : value.members)
        member = written_and_parsed(member);
    if (value.type == VEL_JSON_TYPE_DOUBLE) {
        value.integer = std::llround(value.number);
        if (value.number == std::floor(value.number))
            value.type = VEL_JSON_TYPE_INTEGER;
    }
    return value;
}

/* A document beside a tree of standard containers. */
class VeljsonModel : public testing::Test {
  protected:
    size_t below(size_t limit)
    {
        return random() % limit;
    }

    std::string any_string(size_t longest)
    {
        std::string text(below(longest + 1), ' ');
        for (char &byte : text)
            byte = static_cast<char>(below(4) ? 'a' + below(26) : 1 + below(255));
        return text;
    }

    std::string any_key()
    {
        return below(20) ? "key" + std::to_string(below(40)) : any_string(6);
    }

    /* The way to any value, or to one of a type. */
    model_path any_path(unsigned int type = VEL_JSON_TYPE_NONE)
    {
        for (int attempt = 0; attempt < 20; attempt++) {
            model_path path;
            const json_value *value = &model;
            while (path.size() < 20 && below(4)) {
                if (!value->elements.empty()) {
                    path.push_back({true, "", below(value->elements.size())});
                    value = &value->elements[path.back().index];
                } else if (!value->members.empty()) {
                    auto member = value->members.begin();
                    std::advance(member, static_cast<long>(below(value->members.size())));
                    path.push_back({false, member->first, 0});
                    value = &member->second;
                } else {
                    break;
                }
            }
            if (type == VEL_JSON_TYPE_NONE || value->type == type)
                return path;
        }
        return {};
    }

    veljsonnode *node_at(const model_path &path)
    {
        veljsonnode *node = document.root();
        for (const model_step &step : path) {
            const int result =
                step.isindex
                    ? vel_json_node_fetch_node(document, node, &node, "#", step.index, nullptr)
                    : vel_json_node_fetch_node(document, node, &node, step.key.c_str(), nullptr);
            EXPECT_EQ(result, 0);
        }
        return node;
    }

    /* Sets a value and its node. */
    void set(json_value &value, veljsonnode *node)
    {
        value = {};
        value.type = static_cast<unsigned int>(1 + below(8));
        vel_error_t result = -1;
        switch (value.type) {
        case VEL_JSON_TYPE_OBJECT:
            result = vel_json_node_set_object(document, node);
            break;
        case VEL_JSON_TYPE_ARRAY:
            result = vel_json_node_set_array(document, node);
            break;
        case VEL_JSON_TYPE_STRING:
            value.string = any_string(below(50) ? 20 : 5000);
            result = vel_json_node_set_string(document, node, value.string.c_str());
            break;
        case VEL_JSON_TYPE_INTEGER:
            value.integer = static_cast<int64_t>(random() >> below(64));
            value.number = static_cast<double>(value.integer);
            result = vel_json_node_set_integer(document, node, value.integer);
            break;
        case VEL_JSON_TYPE_DOUBLE:
            value.number = (static_cast<double>(below(8000)) - 4000) / 4;
            value.integer = static_cast<int64_t>(value.number + 0.5);
            result = vel_json_node_set_double(document, node, value.number);
            break;
        case VEL_JSON_TYPE_TRUE:
            result = vel_json_node_set_true(document, node);
            break;
        case VEL_JSON_TYPE_FALSE:
            result = vel_json_node_set_false(document, node);
            break;
        case VEL_JSON_TYPE_NULL:
            result = vel_json_node_set_null(document, node);
            break;
        }
        ASSERT_EQ(result, VEL_ERROR_NONE);
    }

    void set_any()
    {
        const model_path path = any_path();
        if (path.empty() && below(10))
            return; /* or else documents would stay small */
        set(value_at(model, path), path.empty() && below(2) ? nullptr : node_at(path));
    }

    void add_element()
    {
        const model_path path = any_path(VEL_JSON_TYPE_ARRAY);
        json_value &array = value_at(model, path);
        veljsonnode *const node = vel_json_node_array_add(document, node_at(path));
        ASSERT_EQ(node != nullptr, array.type == VEL_JSON_TYPE_ARRAY);
        if (!node)
            return;
        array.elements.emplace_back();
        if (below(4))
            set(array.elements.back(), node);
    }

    void add_member()
    {
        const model_path path = any_path(VEL_JSON_TYPE_OBJECT);
        json_value &object = value_at(model, path);
        const std::string key = any_key();
        veljsonnode *const node = vel_json_node_object_add(document, node_at(path), key.c_str());
        ASSERT_EQ(node != nullptr, object.type == VEL_JSON_TYPE_OBJECT);
        if (!node)
            return;
        json_value &member = object.members[key] = {};
        if (below(4))
            set(member, node);
    }

    static bool is_within(const model_path &inner, const model_path &outer)
    {
        return inner.size() >= outer.size() &&
               std::equal(outer.begin(), outer.end(), inner.begin());
    }

    /* What a copy makes of the integers of doubles. */
    static json_value copied(json_value value)
    {
        for (json_value &element : value.elements)
            element = copied(element);
        for (auto &[key, member] : value.members)
            member = copied(member);
        if (value.type == VEL_JSON_TYPE_DOUBLE)
            value.integer = static_cast<int64_t>(value.number + 0.5);
        return value;
    }

    void copy_within()
    {
        const model_path from = any_path();
        const model_path to = any_path();
        if (is_within(from, to) || is_within(to, from))
            return;
        /* A look-up moves members, but no node. */
        veljsonnode *const source = node_at(from);
        ASSERT_EQ(vel_json_node_copy_node(document, node_at(to), document, source), VEL_ERROR_NONE);
        value_at(model, to) = copied(value_at(model, from));
    }

    void copy_whole()
    {
        if (model.type != VEL_JSON_TYPE_ARRAY && model.type != VEL_JSON_TYPE_OBJECT)
            return;
        json_document other(document.output());
        const json_value source = json_value_of(other, other.root());
        const model_path to = any_path(model.type);
        if (value_at(model, to).type != model.type)
            return;
        ASSERT_EQ(vel_json_node_copy(document, node_at(to), other), VEL_ERROR_NONE);
        value_at(model, to) = copied(source);
    }

    void write_and_parse()
    {
        if (model.type != VEL_JSON_TYPE_ARRAY && model.type != VEL_JSON_TYPE_OBJECT)
            return;
        /* A long text is kept in memory in another way than a short one. */
        const std::string blanks(below(2) ? 20000 : 0, ' ');
        ASSERT_EQ(vel_json_parse(document, (blanks + document.output()).c_str()), 0);
        model = written_and_parsed(model);
    }

    void fetch_missing()
    {
        const model_path path = any_path();
        const json_value &value = value_at(model, path);
        veljsonnode *const node = node_at(path);
        veljsonnode *found = node;
        EXPECT_EQ(vel_json_node_fetch_node(document, node, &found, "no such key", nullptr), -1);
        EXPECT_EQ(found, nullptr);
        found = node;
        EXPECT_EQ(vel_json_node_fetch_node(document, node, &found, "#",
                                           static_cast<unsigned long>(value.elements.size()),
                                           nullptr),
                  -1);
        EXPECT_EQ(found, nullptr);
    }

    void compare()
    {
        ASSERT_EQ(json_value_of(document, document.root()), model);
    }

    void begin_anew()
    {
        model = {};
        model.type = below(2) ? VEL_JSON_TYPE_ARRAY : VEL_JSON_TYPE_OBJECT;
        const bool array = model.type == VEL_JSON_TYPE_ARRAY;
        ASSERT_EQ(vel_json_parse(document, array ? "[]" : "{}"), 0);
    }

    void step()
    {
        const size_t dice = below(100);
        if (dice < 15)
            set_any();
        else if (dice < 45)
            add_element();
        else if (dice < 80)
            add_member();
        else if (dice < 88)
            copy_within();
        else if (dice < 89)
            copy_whole();
        else if (dice < 92)
            write_and_parse();
        else
            fetch_missing();
        values += count_of(model);
        const bool isscalar =
            model.type != VEL_JSON_TYPE_ARRAY && model.type != VEL_JSON_TYPE_OBJECT;
        if (count_of(model) > 400 || (isscalar && below(4) == 0))
            begin_anew();
    }

    log_capture log;
    std::mt19937_64 random;
    json_document document{"{}"};
    json_value model{VEL_JSON_TYPE_OBJECT};
    size_t values = 0; /* in the documents after all steps */
};

TEST_F(VeljsonModel, AgreesAfterEveryStep)
{
    for (unsigned int seed = 0; seed < 150; seed++) {
        random.seed(seed);
        ASSERT_NO_FATAL_FAILURE(begin_anew());
        for (int i = 0; i < 200; i++) {
            ASSERT_NO_FATAL_FAILURE(step()) << "seed " << seed << ", step " << i;
            ASSERT_FALSE(HasFailure()) << "seed " << seed << ", step " << i;
            ASSERT_NO_FATAL_FAILURE(compare()) << "seed " << seed << ", step " << i;
        }
        log.clear();
    }
    EXPECT_GT(values, 150 * 200 * 20u);
}
