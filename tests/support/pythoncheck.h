#ifndef TESTS_SUPPORT_PYTHONCHECK_H
#define TESTS_SUPPORT_PYTHONCHECK_H

/* Python's own implementation as the second opinion. */

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/tempdir.h"

namespace support {

/* Collects rows of words, the last of which is what the library found, and compares it with what a
 * function of Python makes of the others. */
class python_check {
  public:
    /* The script defines expected(*words). */
    explicit python_check(const std::string &script)
    {
        write_file("compare.py", script + kComparison);
        rows_ = fopen("rows", "w");
    }
    ~python_check()
    {
        if (rows_)
            fclose(rows_);
    }
    python_check(const python_check &) = delete;
    python_check &operator=(const python_check &) = delete;

    /* No word may be empty or hold a blank. */
    template <typename... Words> void add(const Words &...words)
    {
        const char *separator = "";
        ((fprintf(rows_, "%s%s", separator, words.c_str()), separator = " "), ...);
        fputc('\n', rows_);
        count_++;
    }

    /* Once, at the end. */
    void compare()
    {
        fclose(rows_);
        rows_ = nullptr;
        const std::string command =
            "python3 compare.py " + std::to_string(count_) + " >differences 2>&1";
        EXPECT_EQ(system(command.c_str()), 0) << read_file("differences");
    }

  private:
    /* Prints what differs, up to a few, and counts it in the exit status. */
    static constexpr char kComparison[] = R"(
import sys
differences = count = 0
with open('rows') as rows:
    for row in rows:
        *words, found = row.rstrip('\n').split(' ')
        count += 1
        right = expected(*words)
        if found != right:
            differences += 1
            if differences < 10:
                print(*words, 'gives', right, 'and not', found)
print(count, 'compared')
sys.exit(differences != 0 or count != int(sys.argv[1]))
)";

    temporary_directory directory_;
    FILE *rows_;
    size_t count_ = 0;
};

} // namespace support

#endif
