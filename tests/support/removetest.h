#ifndef TESTS_SUPPORT_REMOVETEST_H
#define TESTS_SUPPORT_REMOVETEST_H

/* What the tests of the removal of trees share. */

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/logcapture.h"
#include "support/pathfamily.h"

namespace support {

template <typename Family> class remove_test : public path_test<Family> {
  protected:
    using path_test<Family>::path_test;

    static log_line line(int level, const std::string &text)
    {
        return path_test<Family>::line("dir", level, text);
    }

    /* What is logged ahead of the deletion of a file. */
    static log_line announcement(const std::string &path)
    {
        return line(13, "vel_utf8deletefile(" + path + ")");
    }
    static std::vector<log_line> announced(const std::string &path, std::vector<log_line> more = {})
    {
        if (Family::removaltells)
            more.insert(more.begin(), announcement(path));
        return more;
    }

    /* Takes the log but for the announcements, which must be of these paths, in any order. */
    std::vector<log_line> take_but_announcements(const std::vector<std::string> &paths)
    {
        std::vector<log_line> rest, found, expected;
        for (const log_line &one : this->log.take())
            (one.text.rfind("vel_utf8deletefile(", 0) == 0 ? found : rest).push_back(one);
        if (Family::removaltells)
            for (const std::string &path : paths)
                expected.push_back(announcement(path));
        const auto bytext = [](const log_line &one, const log_line &other) {
            return one.text < other.text;
        };
        std::sort(found.begin(), found.end(), bytext);
        std::sort(expected.begin(), expected.end(), bytext);
        EXPECT_EQ(found, expected);
        return rest;
    }
};

} // namespace support

#endif
