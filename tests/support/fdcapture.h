#ifndef TESTS_SUPPORT_FDCAPTURE_H
#define TESTS_SUPPORT_FDCAPTURE_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace support {

/* Collects what is written to a descriptor, such as 1 or 2, until stop is called. Streams are not
 * flushed at the stop, so what a stream still holds is not part of the text. */
class fd_capture {
  public:
    explicit fd_capture(int fd) : fd_(fd)
    {
        fflush(stdout);
        saved_ = dup(fd);
        file_ = memfd_create("capture", 0);
        if (saved_ < 0 || file_ < 0 || dup2(file_, fd) < 0)
            abort();
    }
    ~fd_capture()
    {
        stop();
    }
    fd_capture(const fd_capture &) = delete;
    fd_capture &operator=(const fd_capture &) = delete;

    std::string stop()
    {
        std::string text;
        if (saved_ < 0)
            return text;
        dup2(saved_, fd_);
        close(saved_);
        saved_ = -1;
        text.resize(static_cast<size_t>(lseek(file_, 0, SEEK_END)));
        if (pread(file_, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
            abort();
        close(file_);
        return text;
    }

  private:
    int fd_;
    int saved_;
    int file_;
};

} // namespace support

#endif
