#ifndef TESTS_SUPPORT_FAKEDIRECTORY_H
#define TESTS_SUPPORT_FAKEDIRECTORY_H

/* Defines the platform's readdir for the whole program, so that a test says what a directory has in
 * it, in which order, and how it ends. Include this in one source of a program. */

#include <cerrno>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <string>
#include <utility>

#include "support/platform_function.h"

namespace support {

/* What reading any directory gives while it lives. */
struct fake_directory {
    explicit fake_directory(std::deque<std::string> names_, int error_ = 0)
        : names(std::move(names_)), error(error_)
    {
        active = this;
    }
    ~fake_directory()
    {
        active = nullptr;
    }

    std::deque<std::string> names;
    int error; /* at the end */
    dirent entry = {};

    static inline fake_directory *active;
};

} // namespace support

extern "C" dirent *readdir(DIR *directory)
{
    support::fake_directory *fake = support::fake_directory::active;
    if (!fake)
        return support::platform_function<dirent *(DIR *)>("readdir")(directory);
    if (fake->names.empty()) {
        errno = fake->error ? fake->error : errno;
        return nullptr;
    }
    strcpy(fake->entry.d_name, fake->names.front().c_str());
    fake->names.pop_front();
    return &fake->entry;
}

#endif
