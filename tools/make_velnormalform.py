#!/usr/bin/env python3
"""Makes src/io/velnormalform_table.h from the Unicode Character Database.

usage: make_velnormalform.py [--check] TABLE [DATABASE]

Writes TABLE, or with --check says whether it is what would be written. DATABASE is the directory of
UnicodeData.txt and DerivedNormalizationProps.txt; Debian's package unicode-data has them in
/usr/share/unicode."""
import pathlib
import re
import sys

SHIFT = 5  # the size of a page, 32 characters, that makes the tables smallest


def properties(database, name):
    """The characters that have a property of DerivedNormalizationProps.txt, with its value."""
    text = (database / "DerivedNormalizationProps.txt").read_text()
    for first, last, value in re.findall(
            rf"^([0-9A-F]+)(?:\.\.([0-9A-F]+))?\s*;\s*{name}\s*(?:;\s*(\w+))?", text, re.M):
        for character in range(int(first, 16), int(last or first, 16) + 1):
            yield character, value


def read(database):
    """The combining classes that are not 0, and the canonical decompositions in one step."""
    classes, decompositions = {}, {}
    for line in (database / "UnicodeData.txt").read_text().splitlines():
        fields = line.split(";")
        character = int(fields[0], 16)
        if fields[3] != "0":
            classes[character] = int(fields[3])
        if fields[5] and not fields[5].startswith("<"):
            decompositions[character] = tuple(int(word, 16) for word in fields[5].split())
    return classes, decompositions


def expand(character, decompositions):
    """The full decomposition, which for itself is the character alone."""
    if character not in decompositions:
        return (character,)
    return tuple(part for step in decompositions[character] for part in expand(step, decompositions))


def rows(values, width=10):
    return "\n".join("    " + " ".join(f"{value}," for value in values[i:i + width])
                     for i in range(0, len(values), width))


def make(database):
    version = re.match(r"# DerivedNormalizationProps-([\d.]+)\.txt",
                       (database / "DerivedNormalizationProps.txt").read_text())[1]
    classes, decompositions = read(database)
    excluded = {character for character, _ in properties(database, "Full_Composition_Exclusion")}
    unsettled = {character for character, _ in properties(database, "NFC_QC")}

    parts, starts, records = [], {}, {(0, 0, 0, 0): 0}
    end = max(set(classes) | set(decompositions) | unsettled) + 1
    indexes = [0] * (-(-end >> SHIFT) << SHIFT)
    for character in range(end):
        full = expand(character, decompositions) if character in decompositions else ()
        if full and full not in starts:
            starts[full] = len(parts)
            parts += full
        record = (starts[full] if full else 0, len(full), classes.get(character, 0),
                  int(character in unsettled))
        indexes[character] = records.setdefault(record, len(records))

    pages, pagenumbers = {}, []
    for i in range(0, len(indexes), 1 << SHIFT):
        pagenumbers.append(pages.setdefault(tuple(indexes[i:i + (1 << SHIFT)]), len(pages)))
    pairs = sorted((*pair, character) for character, pair in decompositions.items()
                   if len(pair) == 2 and character not in excluded)
    longest = max(len(full) for full in starts)
    assert len(pages) <= 256 and len(parts) < 65536 and len(records) < 65536
    # A character of two bytes or more gives at most four, so a text at most two for each byte.
    assert longest <= 4 and all(character >= 0x80 for character in decompositions)

    indexrows = "\n".join(f"    {{\n{rows(page, 16)}\n    }}," for page in pages)
    return f"""/* Made by tools/make_velnormalform.py from the Unicode Character Database, version {version}.
 * Change that, and not this. */
#ifndef VELLIB_IO_VELNORMALFORM_TABLE_H
#define VELLIB_IO_VELNORMALFORM_TABLE_H

#include <cstdint>

/* What normalization needs to know of a character. */
struct vel_normalform_record {{
    uint16_t start; /* of its canonical decomposition among vel_normalform_parts */
    uint8_t length; /* of that, or 0 if it has none */
    uint8_t combiningclass;
    bool unsettled; /* is not, or may not be, in a text of Normalization Form C */
}};

/* clang-format off */

/* Characters from here on are plain. */
static constexpr uint32_t vel_normalform_end = {len(indexes):#x};

/* Two stages: a page for each {1 << SHIFT} characters, and in it the record of each of them. */
static constexpr unsigned int vel_normalform_shift = {SHIFT};
static constexpr uint8_t vel_normalform_pages[] = {{
{rows(pagenumbers, 20)}
}};

static constexpr uint16_t vel_normalform_indexes[][1 << vel_normalform_shift] = {{
{indexrows}
}};

static constexpr vel_normalform_record vel_normalform_records[] = {{
{rows([f"{{{start}, {length}, {number}, {'true' if flag else 'false'}}}" for start, length, number, flag in records], 4)}
}};

/* Full canonical decompositions. */
static constexpr uint32_t vel_normalform_parts[] = {{
{rows([f"{part:#x}" for part in parts])}
}};

/* Canonical compositions, sorted by the two characters. */
struct vel_normalform_pair {{
    uint32_t first, second, composite;
}};

static constexpr vel_normalform_pair vel_normalform_pairs[] = {{
{rows([f"{{{first:#x}, {second:#x}, {composite:#x}}}" for first, second, composite in pairs], 3)}
}};

/* clang-format on */

#endif
"""


def main():
    words = [word for word in sys.argv[1:] if word != "--check"]
    if not 1 <= len(words) <= 2:
        sys.exit(__doc__)
    table = pathlib.Path(words[0])
    made = make(pathlib.Path(words[1] if len(words) > 1 else "/usr/share/unicode"))
    if "--check" not in sys.argv[1:]:
        table.write_text(made)
    elif table.read_text() != made:
        sys.exit(f"{table} is not what {sys.argv[0]} makes of the database here")


if __name__ == "__main__":
    main()
