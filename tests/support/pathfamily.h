#ifndef TESTS_SUPPORT_PATHFAMILY_H
#define TESTS_SUPPORT_PATHFAMILY_H

/* The two families of functions about files and directories, for tests that hold for both; and what
 * such tests share. */

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/logcapture.h"
#include "support/tempdir.h"

namespace support {

/* Paths as bytes. */
struct byte_paths {
    static constexpr char word[] = "";          /* behind vel in every name */
    static constexpr bool removaltells = false; /* of each file, before it is deleted */

    static constexpr auto file_exists = vel_file_exists;
    static constexpr auto file_data_save = vel_file_data_save;
    static constexpr auto file_data_load = vel_file_data_load;
    static constexpr auto file_data_save_with_backup = vel_file_data_save_with_backup;
    static constexpr auto file_data_load_with_backup = vel_file_data_load_with_backup;
    static constexpr auto deletefile = vel_deletefile;
    static constexpr auto rename = vel_rename;

    using dir = struct veldir;
    static constexpr auto dir_open = vel_dir_open;
    static constexpr auto dir_destroy = vel_dir_destroy;
    static constexpr auto dir_next = vel_dir_next;
    static constexpr auto dir_fetch_name = vel_dir_fetch_name;
    static constexpr auto dir_copy_name = vel_dir_copy_name;
    static constexpr auto dir_is_directory = vel_dir_is_directory;
    static constexpr auto dir_is_symlink = vel_dir_is_symlink;
    static constexpr auto dir_get_size = vel_dir_get_size;
    static constexpr auto dir_get_error = vel_dir_get_error;
    static constexpr auto dir_separator = vel_dir_separator;
    static constexpr auto dir_remove_recursive = vel_dir_remove_recursive;

    using stat = struct velstat;
    static constexpr auto stat_create = vel_stat_create;
    static constexpr auto stat_destroy = vel_stat_destroy;
    static constexpr auto stat_lstat = vel_stat_lstat;
    static constexpr auto stat_is_directory = vel_stat_is_directory;
    static constexpr auto stat_is_symlink = vel_stat_is_symlink;
    static constexpr auto stat_get_size = vel_stat_get_size;

    static constexpr auto mkdir = vel_mkdir;
    static constexpr auto mkdir_recursive = vel_mkdir_recursive;
    static constexpr auto mkdir_file_path = vel_mkdir_file_path;
    static constexpr auto rmdir = vel_rmdir;
    static constexpr auto symlink_file = vel_symlink_file;
    static constexpr auto symlink_directory = vel_symlink_directory;
    static constexpr auto hardlink = vel_hardlink;
};

/* Paths in UTF-8. */
struct utf8_paths {
    static constexpr char word[] = "utf8";
    static constexpr bool removaltells = true;

    static constexpr auto file_exists = vel_utf8file_exists;
    static constexpr auto file_data_save = vel_utf8file_data_save;
    static constexpr auto file_data_load = vel_utf8file_data_load;
    static constexpr auto file_data_save_with_backup = vel_utf8file_data_save_with_backup;
    static constexpr auto file_data_load_with_backup = vel_utf8file_data_load_with_backup;
    static constexpr auto deletefile = vel_utf8deletefile;
    static constexpr auto rename = vel_utf8rename;

    using dir = struct velutf8dir;
    static constexpr auto dir_open = vel_utf8dir_open;
    static constexpr auto dir_destroy = vel_utf8dir_destroy;
    static constexpr auto dir_next = vel_utf8dir_next;
    static constexpr auto dir_fetch_name = vel_utf8dir_fetch_name;
    static constexpr auto dir_copy_name = vel_utf8dir_copy_name;
    static constexpr auto dir_is_directory = vel_utf8dir_is_directory;
    static constexpr auto dir_is_symlink = vel_utf8dir_is_symlink;
    static constexpr auto dir_get_size = vel_utf8dir_get_size;
    static constexpr auto dir_get_error = vel_utf8dir_get_error;
    static constexpr auto dir_separator = vel_utf8dir_separator;
    static constexpr auto dir_remove_recursive = vel_utf8dir_remove_recursive;

    using stat = struct velutf8stat;
    static constexpr auto stat_create = vel_utf8stat_create;
    static constexpr auto stat_destroy = vel_utf8stat_destroy;
    static constexpr auto stat_lstat = vel_utf8stat_lstat;
    static constexpr auto stat_is_directory = vel_utf8stat_is_directory;
    static constexpr auto stat_is_symlink = vel_utf8stat_is_symlink;
    static constexpr auto stat_get_size = vel_utf8stat_get_size;

    static constexpr auto mkdir = vel_utf8mkdir;
    static constexpr auto mkdir_recursive = vel_utf8mkdir_recursive;
    static constexpr auto mkdir_file_path = vel_utf8mkdir_file_path;
    static constexpr auto rmdir = vel_utf8rmdir;
    static constexpr auto symlink_file = vel_utf8symlink_file;
    static constexpr auto symlink_directory = vel_utf8symlink_directory;
    static constexpr auto hardlink = vel_utf8hardlink;
};

using path_families = testing::Types<byte_paths, utf8_paths>;

struct path_family_name {
    template <typename Family> static std::string GetName(int)
    {
        return *Family::word ? "Utf8" : "Byte";
    }
};

/* The name of a function, and that of an object or module, as "vel_utf8dir_open", "velutf8dir". */
template <typename Family> std::string family_function(const char *rest)
{
    return std::string("vel_") + Family::word + rest;
}
template <typename Family> std::string family_name(const char *rest)
{
    return std::string("vel") + Family::word + rest;
}

/* An empty directory to work in, and a log of which no line is left; so every line is taken by the
 * test that causes it. */
template <typename Family> class path_test : public testing::Test {
  protected:
    explicit path_test(const std::string &parent = "/tmp") : temporary(parent)
    {
    }
    void TearDown() override
    {
        EXPECT_EQ(log.take(), (std::vector<log_line>{}));
    }

    /* A line of the family's module of that name, which is without the words "vel" and "utf8". */
    static log_line line(const char *module, int level, const std::string &text)
    {
        return {"io/" + family_name<Family>(module), level, text};
    }

    /* The paths below the working directory. */
    static std::set<std::string> paths_here()
    {
        std::set<std::string> found;
        for (const auto &entry : std::filesystem::recursive_directory_iterator("."))
            found.insert(entry.path().string().substr(2));
        return found;
    }

    temporary_directory temporary;
    log_capture log;
};

} // namespace support

#endif
