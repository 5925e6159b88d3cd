#ifndef TESTS_SUPPORT_NORMALTEST_H
#define TESTS_SUPPORT_NORMALTEST_H

/* The conformance test of the Unicode normalization forms (UAX #15), of Debian's unicode-data. */

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/utf8model.h"

namespace support {

struct normal_row {
    std::string number;     /* of the line, for a message */
    std::string columns[5]; /* source, NFC, NFD, NFKC, NFKD; in UTF-8 */
    bool oneforone;         /* of the part with all characters that change by themselves */
};

/* Code points in hexadecimal with blanks between, as UTF-8. */
inline std::string normal_text(const std::string &points)
{
    std::string text;
    const char *at = points.c_str();
    for (char *end; *at; at = *end ? end + 1 : end)
        text += utf8_encode(static_cast<uint32_t>(strtoul(at, &end, 16)));
    return text;
}

inline std::vector<normal_row> normal_rows()
{
    std::vector<normal_row> rows;
    FILE *pipe = popen("bzcat /usr/share/unicode/NormalizationTest.txt.bz2", "r");
    char buffer[4096];
    int number = 0;
    bool oneforone = false;
    while (pipe && fgets(buffer, sizeof buffer, pipe)) {
        const std::string line = buffer;
        number++;
        if (line[0] == '@')
            oneforone = line.rfind("@Part1", 0) == 0;
        if (line[0] == '@' || line[0] == '#')
            continue;
        normal_row row = {"line " + std::to_string(number), {}, oneforone};
        size_t at = 0;
        for (std::string &column : row.columns) {
            const size_t end = line.find(';', at);
            column = normal_text(line.substr(at, end - at));
            at = end + 1;
        }
        rows.push_back(row);
    }
    EXPECT_TRUE(pipe && pclose(pipe) == 0);
    EXPECT_GT(rows.size(), 19000u);
    return rows;
}

} // namespace support

#endif
