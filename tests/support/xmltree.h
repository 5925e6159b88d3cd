#ifndef TESTS_SUPPORT_XMLTREE_H
#define TESTS_SUPPORT_XMLTREE_H

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include <vellib/velxml.h>

namespace support {

/* A document of its own. */
struct xml_document {
    xml_document() = default;
    ~xml_document()
    {
        if (xml)
            vel_xml_destroy(xml);
    }
    xml_document(const xml_document &) = delete;
    xml_document &operator=(const xml_document &) = delete;

    velxml *xml = vel_xml_create();
};

/* What is written for a document, which may not be empty. */
inline std::string xml_output(velxml *xml)
{
    char *text = nullptr;
    size_t length = 0;
    FILE *out = open_memstream(&text, &length);
    EXPECT_EQ(vel_xml_output(xml, out), 0);
    fclose(out);
    const std::string written(text, length);
    free(text);
    return written;
}

/* What a query found. */
struct xml_found {
    int result;
    std::optional<std::string> value;

    bool operator==(const xml_found &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const xml_found &found)
{
    return out << found.result << " " << (found.value ? "\"" + *found.value + "\"" : "no value");
}

constexpr int kXmlMissing = -1;

/* The query with these items of a path, which the end of the list closes. */
template <typename... Item> xml_found xml_query(velxml *xml, Item... item)
{
    const char *value = "dirt";
    size_t length = 77;
    const int result =
        vel_xml_query_value_const(xml, &value, &length, item..., static_cast<char *>(nullptr));
    if (value)
        return {result, std::string(value, length)};
    EXPECT_EQ(length, 0u);
    return {result, {}};
}

/* A path to "a", "" and so on finds something in every document that holds an element of this
 * name, or an empty node, at the top. */
inline bool xml_is_empty(velxml *xml)
{
    for (const char *name : {"", "a", "b", "r", "a/", "?xml"})
        if (xml_query(xml, name).result == 0)
            return false;
    return true;
}

} // namespace support

#endif
