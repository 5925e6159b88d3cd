#ifndef TESTS_SUPPORT_STDSTREAMS_H
#define TESTS_SUPPORT_STDSTREAMS_H

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace support {

/* Puts a stream in memory in the place of stdout or stderr while it lives. */
class stream_capture {
  public:
    explicit stream_capture(FILE *&stream) : stream_(stream), saved_(stream)
    {
        fflush(stream);
        stream = open_memstream(&text_, &length_);
        if (!stream)
            abort();
    }
    ~stream_capture()
    {
        fclose(std::exchange(stream_, saved_));
        free(text_);
    }
    stream_capture(const stream_capture &) = delete;
    stream_capture &operator=(const stream_capture &) = delete;

    std::string text()
    {
        fflush(stream_);
        return std::string(text_, length_);
    }

  private:
    FILE *&stream_;
    FILE *saved_;
    char *text_ = nullptr;
    size_t length_ = 0;
};

} // namespace support

#endif
