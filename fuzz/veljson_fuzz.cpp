#include <cstring>
#include <string>
#include <string_view>

#include <vellib/veljson.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "adt/veljson_internal.h"
#include "fuzz.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

static veljson *create()
{
    veljson *document = vel_json_create();
    FUZZ_REQUIRE(document);
    return document;
}

static std::string output(veljson *document)
{
    char *text = vel_json_output(document);
    FUZZ_REQUIRE(text);
    std::string result = text;
    vel_free(text);
    return result;
}

/* How a node is made, and whether its double, if it has one, is written in a form that can be read
 * again. */
static bool check_node(veljson *document, veljsonnode *node);

static bool check_object(veljson *document, veljsonnode *node)
{
    bool readable = true;
    const char *key;
    veljsonnode *value;
    void *handle = vel_json_enumerate_start(document, node, &key, &value);

    for (; handle; handle = vel_json_enumerate_next(document, node, handle, &key, &value)) {
        FUZZ_REQUIRE(key && value && !vel_json_node_fetch_next(document, value));
        readable = check_node(document, value) && readable;
    }
    FUZZ_REQUIRE(!key && !value);
    return readable;
}

static bool check_array(veljson *document, veljsonnode *node)
{
    bool readable = true;
    veljsonnode *element = node->children, *found, *last = nullptr;

    for (unsigned long i = 0; element; element = vel_json_node_fetch_next(document, element)) {
        FUZZ_REQUIRE(vel_json_node_fetch_node(document, node, &found, "#", i++, nullptr) == 0);
        FUZZ_REQUIRE(found == element);
        readable = check_node(document, element) && readable;
        last = element;
    }
    FUZZ_REQUIRE(node->value.tail == last);
    return readable;
}

static bool check_node(veljson *document, veljsonnode *node)
{
    double value;

    FUZZ_REQUIRE(node->nodetype > VEL_JSON_TYPE_NONE && node->nodetype < VEL_JSON_TYPE_COUNT);
    if (vel_json_is_object(document, node))
        return check_object(document, node);
    if (vel_json_is_array(document, node))
        return check_array(document, node);
    FUZZ_REQUIRE(!node->children);
    if (!vel_json_is_double(document, node))
        return true;
    FUZZ_REQUIRE(vel_json_node_fetch_double(document, node, &value, nullptr) == 0);
    char text[vel_json_doublesize];
    const std::string_view written(text, vel_json_double_to_text(text, value));
    return written != "-0" && written.find_first_not_of("-.0123456789") == std::string_view::npos;
}

/* Six digits of a double hold their own: from the second writing on, nothing changes but the order
 * of members, of which the length says nothing. */
static void check_again(veljson *document, const std::string &first)
{
    veljson *again = create();

    FUZZ_REQUIRE(vel_json_parse(again, first.c_str()) == 0);
    FUZZ_REQUIRE(output(again).size() == first.size());
    veljson *copy = create();
    FUZZ_REQUIRE(vel_json_is_object(document, document->root)
                     ? vel_json_node_set_object(copy, nullptr) == VEL_ERROR_NONE
                     : vel_json_node_set_array(copy, nullptr) == VEL_ERROR_NONE);
    FUZZ_REQUIRE(vel_json_node_copy(copy, copy->root, document) == VEL_ERROR_NONE);
    FUZZ_REQUIRE(output(copy).size() == first.size());
    vel_json_destroy(copy);
    vel_json_destroy(again);
}

/* A long text is kept in another way, and comes to the same. */
static void check_long(const std::string &text, const std::string *first)
{
    veljson *document = create();
    const bool accepted = vel_json_parse(document, (std::string(16384, ' ') + text).c_str()) == 0;

    FUZZ_REQUIRE(accepted == (first != nullptr));
    if (accepted) {
        FUZZ_REQUIRE(output(document) == *first);
        check_node(document, document->root);
        FUZZ_REQUIRE(vel_json_node_set_null(document, nullptr) == VEL_ERROR_NONE);
    }
    vel_json_destroy(document);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(data, data + size);
    veljson *document = create();

    FUZZ_REQUIRE(vel_json_parse(document, "[\"what was there\"]") == 0);
    if (vel_json_parse(document, text.c_str()) == 0) {
        const bool readable = check_node(document, document->root);
        const std::string first = output(document);
        check_long(text, &first);
        if (readable)
            check_again(document, first);
    } else {
        FUZZ_REQUIRE(!document->root);
        check_long(text, nullptr);
    }
    vel_json_destroy(document);
    return 0;
}
