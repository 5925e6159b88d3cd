#ifndef TESTS_SUPPORT_TEMPDIR_H
#define TESTS_SUPPORT_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace support {

/* An empty directory that is the working directory while this lives, and is removed afterwards. */
class temporary_directory {
  public:
    explicit temporary_directory(const std::string &parent = "/tmp")
        : before_(std::filesystem::current_path()), path_(parent + "/velXXXXXX")
    {
        if (!mkdtemp(path_.data()))
            abort();
        std::filesystem::current_path(path_);
    }
    ~temporary_directory()
    {
        std::filesystem::current_path(before_);
        std::filesystem::remove_all(path_);
    }
    temporary_directory(const temporary_directory &) = delete;
    temporary_directory &operator=(const temporary_directory &) = delete;

  private:
    std::filesystem::path before_;
    std::string path_;
};

/* Where files are kept in memory, for tests that make so many that a busy machine takes minutes to
 * write them to a disk. */
inline std::string memory_files()
{
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

inline std::string read_file(const std::string &name)
{
    std::ifstream in(name, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void write_file(const std::string &name, const std::string &content)
{
    std::ofstream(name, std::ios::binary) << content;
}

} // namespace support

#endif
