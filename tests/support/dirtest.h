#ifndef TESTS_SUPPORT_DIRTEST_H
#define TESTS_SUPPORT_DIRTEST_H

/* What the tests of directory handles share. */

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/logcapture.h"
#include "support/pathfamily.h"

namespace support {

/* Walks a directory and checks what a handle says, for both families. */
template <typename Family> class dir_test : public path_test<Family> {
  protected:
    struct destroy {
        void operator()(typename Family::dir *dir) const
        {
            Family::dir_destroy(dir);
        }
    };
    using handle = std::unique_ptr<typename Family::dir, destroy>;

    /* A handle on a directory of this name that stands on the entry. */
    handle at(const char *path, const std::string &name)
    {
        handle dir(Family::dir_open(path));
        EXPECT_NE(dir, nullptr);
        while (dir && Family::dir_next(dir.get()) == 0)
            if (Family::dir_fetch_name(dir.get()) == name)
                return dir;
        ADD_FAILURE() << name << " is not there";
        return nullptr;
    }

    static log_line line(int level, const std::string &text)
    {
        return path_test<Family>::line("dir", level, text);
    }
    static log_line not_called()
    {
        return line(6, family_function<Family>("dir_next() has not been successfully called"));
    }
    static log_line stat_failed()
    {
        return line(6, "calling stat() has failed");
    }

    /* All queries refuse, with their lines, and leave the field error as it is but for the name's. */
    void expect_no_entry(typename Family::dir *dir, int error)
    {
        EXPECT_EQ(Family::dir_is_directory(dir), -1);
        EXPECT_EQ(Family::dir_is_symlink(dir), -1);
        EXPECT_EQ(Family::dir_get_size(dir), -1);
        EXPECT_EQ(this->log.take(),
                  (std::vector<log_line>{not_called(), not_called(), not_called()}));
        EXPECT_EQ(Family::dir_get_error(dir), error);
        EXPECT_EQ(Family::dir_fetch_name(dir), nullptr);
        EXPECT_EQ(this->log.take(), (std::vector<log_line>{not_called()}));
        EXPECT_EQ(Family::dir_get_error(dir), VEL_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(Family::dir_copy_name(dir), nullptr);
        EXPECT_EQ(this->log.take(),
                  (std::vector<log_line>{not_called(), line(6, "unable to fetch entry name")}));
    }

    /* The names that a walk gives. */
    static std::multiset<std::string> names(typename Family::dir *dir)
    {
        std::multiset<std::string> found;
        int result;
        while ((result = Family::dir_next(dir)) == 0)
            found.insert(Family::dir_fetch_name(dir));
        EXPECT_EQ(result, -1);
        return found;
    }
};

} // namespace support

#endif
