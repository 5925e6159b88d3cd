#ifndef TESTS_SUPPORT_RANDOMTREE_H
#define TESTS_SUPPORT_RANDOMTREE_H

/* A directory tree of all kinds of entries and names, and what the shell's find sees of a tree. */

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <ostream>
#include <random>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/tempdir.h"

namespace support {

/* What the library and find say about one entry. */
struct tree_entry {
    bool isdirectory; /* or a link to one */
    bool issymlink;
    int64_t size;

    bool operator==(const tree_entry &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const tree_entry &one)
{
    return out << "directory " << one.isdirectory << ", link " << one.issymlink << ", size "
               << one.size;
}

using tree_map = std::map<std::string, tree_entry>; /* under the path below the top */

/* A name that is its own normal form C, or no UTF-8 at all. */
inline std::string random_name(std::mt19937 &random)
{
    static const char *const pieces[] = {"a",
                                         "B",
                                         "0",
                                         ".",
                                         "..",
                                         " ",
                                         "\n",
                                         "'",
                                         "%",
                                         "\xC3\xA9",
                                         "\xEA\xB0\x80",
                                         "\xFF",
                                         "\xED\xA0\x80",
                                         "\\",
                                         "*",
                                         "\t",
                                         "\xF0\x9F\x98\x80"};
    std::string name;
    const unsigned count = random() % 8;
    for (unsigned i = 0; i < count; i++)
        name += pieces[random() % std::size(pieces)];
    if (random() % 10 == 0)
        name.resize(255, 'x');
    return name == "." || name == ".." || name.empty() ? "plain" : name;
}

/* Fills a directory with about this many entries. Names that come twice are one entry. */
inline void make_random_tree(std::mt19937 &random, const std::string &top, int count)
{
    std::vector<std::string> directories = {top};
    for (int i = 0; i < count; i++) {
        const std::string &parent = directories[random() % directories.size()];
        const std::string path = parent + "/" + random_name(random);
        std::error_code error;
        if (path.size() > 3000 || std::filesystem::symlink_status(path, error).type() !=
                                      std::filesystem::file_type::not_found)
            continue;
        switch (random() % 7) {
        case 0:
        case 1:
        case 2:
            write_file(path, std::string(random() % 5000, 'x'));
            break;
        case 3:
        case 4:
            std::filesystem::create_directory(path);
            directories.push_back(path);
            break;
        case 5:
            mkfifo(path.c_str(), 0600);
            break;
        default: {
            static const char *const targets[] = {".",    "..",          "nowhere",
                                                  "/etc", "/etc/passwd", "plain"};
            std::filesystem::create_symlink(targets[random() % std::size(targets)], path);
        }
        }
    }
}

/* Everything below a directory, by find. */
inline tree_map find_tree(const std::string &top)
{
    tree_map found;
    const std::string command = "find '" + top + "' -mindepth 1 -printf '%Y %y %s %P\\0'";
    FILE *pipe = popen(command.c_str(), "r");
    std::string text;
    char buffer[4096];
    for (size_t got; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        text.append(buffer, got);
    EXPECT_EQ(pclose(pipe), 0);

    for (size_t at = 0, end; at < text.size(); at = end + 1) {
        end = text.find('\0', at);
        const std::string line = text.substr(at, end - at);
        const size_t sizeend = line.find(' ', 4);
        found[line.substr(sizeend + 1)] = {line[0] == 'd', line[2] == 'l',
                                           std::stoll(line.substr(4, sizeend - 4))};
    }
    return found;
}

} // namespace support

#endif
