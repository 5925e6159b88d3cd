#ifndef VELLIB_VELXML_H
#define VELLIB_VELXML_H

#include <stddef.h>
#include <stdio.h>

#include <vellib/velapi.h>

/* velxml: reads simple XML: elements, one text for each of them, and their attributes as one raw
 * span. Entities, comments, CDATA and namespaces are not known, and nothing is decoded.
 *
 * A document holds a copy of the text and the places of everything in it. The declaration
 * <?xml ... ?> is an element like any other, named "?xml", in front of the document's own. The name
 * of an element ends at the first blank; a tab or a line feed stays in it.
 * Threads: one at a time while a text is parsed; once it is, several may query it.
 * Note: "/" in an empty-element tag stays in the span in front of it, so <br/> is named "br/". */
typedef struct velxml velxml;

VEL_DECLARATIONS_BEGIN

/* Creates a document without a text.
 *
 * Returns it, for vel_xml_destroy, or NULL if there is not enough memory, which is not logged. */
VEL_API velxml *vel_xml_create(void);

/* Destroys a document with its text and all pointers into it. */
VEL_API void vel_xml_destroy(velxml *velxml);

/* Parses a text in place of the one before, which is gone also on failure. Depth has no limit.
 *
 * xml  is copied.
 *
 * Returns 0, or -1 with the document left empty; the log has the reason, one case excepted: text
 * between a child and the end tag behind it.
 *
 * Note: a text that ends inside an element, or goes wrong there, is a success with a line of log if
 * a child of that element, or of one beside it, has been read to its end before. What was read
 * can be queried.
 * Note: an end tag without a start tag ends the text; what stands behind it is not read.
 * Note: white space behind the last element makes an empty element without a name.
 * Note: text between a child element and the end tag of its parent, as in <a>x<b/>y</a>, aborts,
 * and so does text in front of an end tag without a start tag. Do not parse what a stranger can
 * write. */
VEL_API int vel_xml_parse(velxml *velxml, const char *xml);

/* Writes a parsed document, an element a line, indented by two blanks for each level.
 *
 * out  a stream of velfile.h or the platform. What fails in writing to it shows there alone.
 *
 * Returns 0. A document without any element aborts.
 *
 * Note: what is written is for a reader, and need not parse again: an element without text and
 * children ends in the first character of its name, so that <?xml ... ?> comes out right, but
 * <a></a> as <aa>. */
VEL_API int vel_xml_output(velxml *velxml, FILE *out);

/* Gives a copy of the text of an element, without the white space in front of it.
 *
 * ...  a path from the top: the name of an element on each level, closed by (char *)NULL. A name
 *      with "#" behind it is followed by an unsigned int, which tells which of the elements of this
 *      name is meant, from 0; without it, it is the first. An empty path means the first element.
 *
 * Returns a new string, or NULL if there is no such element, which is not logged, or there is not
 * enough memory, which is.
 *
 * Note: aborts for an element without a text. Where there may be one, call
 * vel_xml_query_value_const. An empty path on an empty document aborts too. */
VEL_API char *vel_xml_query_value(velxml *velxml, ...);

/* Looks up the text of an element, without the white space in front of it.
 *
 * valueptr     receives the text, without a NUL behind it, or NULL if the element has none. It
 *              stays the document's, and is valid until the next vel_xml_parse or vel_xml_destroy.
 * valuelenptr  receives its length in bytes.
 * ...          a path, as for vel_xml_query_value.
 *
 * Returns 0, or -1 with NULL and 0 written if there is no such element. Logs nothing.
 *
 * Note: an empty path on an empty document aborts. */
VEL_API int vel_xml_query_value_const(velxml *velxml, const char **valueptr, size_t *valuelenptr,
                                      ...);

VEL_DECLARATIONS_END

#endif
