/* The XML parser against mxml, libxml2 and expat: a document is parsed and given up again. mxml and
 * libxml2 build a tree too, but copy each name and text of it and decode entities; expat calls back
 * for each start and end of an element and each text, and builds nothing. */

#include <cstdlib>
#include <functional>

#include <expat.h>
#include <libxml/parser.h>
#include <mxml.h>

#include <vellib/velxml.h>

#include "bench.h"

namespace {

/* A catalogue of about so many bytes, in the small language that all of them read alike. */
std::string make_document(size_t size)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<catalogue>\n";
    for (size_t i = 0; text.size() + 300 < size; i++) {
        const std::string number = std::to_string(i);
        text += "  <item id=\"" + number + "\" kind=\"book\">\n";
        text += "    <title>The history of volume " + number + "</title>\n";
        text += "    <author><name>A. Writer</name><born>19" + std::to_string(10 + i % 90) +
                "</born></author>\n";
        text += "    <price currency=\"EUR\">" + std::to_string(i * 7 % 100) + ".95</price>\n";
        text += "    <stock>" + std::to_string(i * 31 % 1000) + "</stock>\n";
        text += "    <note>Sent by ordinary mail, in one to three working days.</note>\n";
        text += "  </item>\n";
    }
    return text + "</catalogue>";
}

void require(bool holds)
{
    if (!holds)
        abort();
}

void on_start(void *context, const XML_Char *, const XML_Char **)
{
    ++*static_cast<size_t *>(context);
}

void on_end(void *, const XML_Char *)
{
}

void on_text(void *, const XML_Char *, int)
{
}

struct contender {
    const char *name;
    std::function<void(const std::string &)> run;
};

const contender kContenders[] = {
    {"vellib",
     [](const std::string &text) {
         velxml *document = vel_xml_create();
         require(vel_xml_parse(document, text.c_str()) == 0);
         bench::keep(document);
         vel_xml_destroy(document);
     }},
    {"mxml",
     [](const std::string &text) {
         mxml_node_t *tree = mxmlLoadString(nullptr, text.c_str(), MXML_OPAQUE_CALLBACK);
         require(tree);
         bench::keep(tree);
         mxmlDelete(tree);
     }},
    {"libxml2",
     [](const std::string &text) {
         xmlDocPtr document = xmlReadMemory(text.data(), static_cast<int>(text.size()), "bench.xml",
                                            nullptr, XML_PARSE_NONET);
         require(document);
         bench::keep(document);
         xmlFreeDoc(document);
     }},
    {"expat",
     [](const std::string &text) {
         size_t elements = 0;
         XML_Parser parser = XML_ParserCreate(nullptr);
         XML_SetUserData(parser, &elements);
         XML_SetElementHandler(parser, on_start, on_end);
         XML_SetCharacterDataHandler(parser, on_text);
         require(XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK);
         bench::keep(elements);
         XML_ParserFree(parser);
     }},
};

void bench_document(const std::string &name, const std::string &text)
{
    const size_t calls = 1 + 100000 / text.size();
    bench::measure_row(name, std::size(kContenders), 101, [&](size_t i) {
        return bench::sample(calls, [&] { kContenders[i].run(text); }) / 1000;
    });
}

} // namespace

int main()
{
    bench::print_header("us a document", bench::names_of(kContenders));
    bench_document("2 KB", make_document(2000));
    bench_document("700 KB", make_document(700000));
    return 0;
}
