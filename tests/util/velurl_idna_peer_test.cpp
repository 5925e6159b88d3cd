/* International host names beside idn2, the tool of GNU Libidn, for names that need no mapping:
 * there its rules come to the bare conversion. */

#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/tempdir.h"
#include "support/utf8model.h"

using namespace support;

/* Letters that are small, in normal form C, and allowed anywhere in a label. */
static const struct {
    uint32_t first, last;
} kAlphabets[] = {
    {'a', 'z'},       {0xE0, 0xF6},     {0xF8, 0xFF},     {0x3B1, 0x3C1},   {0x3C3, 0x3C9},
    {0x430, 0x44F},   {0x561, 0x586},   {0x10D0, 0x10F0}, {0x3042, 0x3042}, {0x304B, 0x304B},
    {0x30A2, 0x30A2}, {0x4E00, 0x9FA5}, {0xAC00, 0xD7A3}, {0xE01, 0xE30},   {0x20000, 0x2A6D6},
};

static std::string random_label(std::mt19937 &random)
{
    const auto &alphabet = kAlphabets[random() % std::size(kAlphabets)];
    std::string label;
    for (size_t left = 1 + random() % 8; left > 0; left--) {
        const auto &letters = random() % 3 ? alphabet : kAlphabets[0];
        label += utf8_encode(letters.first +
                             static_cast<uint32_t>(random() % (letters.last - letters.first + 1)));
    }
    return label;
}

static std::vector<std::string> run_idn2(const std::string &options, const std::string &names)
{
    write_file("names", names);
    const std::string command = "LC_ALL=C.UTF-8 idn2 " + options + " <names >found 2>errors";
    EXPECT_EQ(system(command.c_str()), 0) << read_file("errors");
    std::istringstream in(read_file("found"));
    std::vector<std::string> found;
    for (std::string line; std::getline(in, line);)
        found.push_back(line);
    return found;
}

TEST(VelurlIdnaPeer, Idn2GivesTheSameNames)
{
    temporary_directory directory;
    std::mt19937 random(5891);
    std::vector<std::string> names;
    std::string joined;
    for (int turn = 0; turn < 4000; turn++) {
        std::string name = random_label(random);
        for (size_t left = random() % 3; left > 0; left--)
            name += "." + random_label(random);
        names.push_back(name);
        joined += name + "\n";
    }

    const std::vector<std::string> hosts = run_idn2("", joined);
    ASSERT_EQ(hosts.size(), names.size());
    joined.clear();
    for (size_t i = 0; i < names.size(); i++) {
        char *host = nullptr;
        ASSERT_EQ(vel_url_idna_host_to_ascii(names[i].c_str(), &host), VEL_ERROR_NONE);
        ASSERT_STREQ(host, hosts[i].c_str()) << names[i];
        joined += std::string(host) + "\n";
        vel_free(host);
    }

    const std::vector<std::string> back = run_idn2("--decode", joined);
    ASSERT_EQ(back.size(), names.size());
    for (size_t i = 0; i < names.size(); i++) {
        char *name = nullptr;
        ASSERT_EQ(vel_url_idna_host_to_unicode(hosts[i].c_str(), &name), VEL_ERROR_NONE);
        ASSERT_STREQ(name, back[i].c_str());
        ASSERT_EQ(name, names[i]);
        vel_free(name);
    }
}
