#ifndef TESTS_PEERS_CLIENT_H
#define TESTS_PEERS_CLIENT_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/velerror.h>
#include <vellib/velfile.h>
#include <vellib/velhttp.h>
#include <vellib/velhttp_lite.h>
#include <vellib/velmalloc.h>

#include "support/logcapture.h"
#include "support/tempdir.h"

namespace peers {

using log_lines = std::vector<support::log_line>;

/* The SHA-256 of a file, as a program that is not ours sees it. */
inline std::string digest_of(const std::string &filename)
{
    char digest[65] = "";
    FILE *stream = popen(("sha256sum <'" + filename + "'").c_str(), "r");
    EXPECT_EQ(fread(digest, 1, 64, stream), 64U);
    EXPECT_EQ(pclose(stream), 0);
    return digest;
}

/* Writes a file of random bytes, always the same ones. */
inline void write_random(const std::string &filename, size_t size)
{
    static std::mt19937_64 random(20240229);
    std::vector<uint64_t> block(8192);
    std::ofstream out(filename, std::ios::binary);
    for (size_t left = size; left > 0;) {
        for (uint64_t &word : block)
            word = random();
        const size_t count = std::min(left, block.size() * sizeof(uint64_t));
        out.write(reinterpret_cast<const char *>(block.data()),
                  static_cast<std::streamsize>(count));
        left -= count;
    }
}

/* The lines of the HTTP client and its backend among those of a log. */
inline log_lines http_lines(support::log_capture *log)
{
    log_lines lines;
    for (const support::log_line &line : log->take()) {
        if (line.module.starts_with("net/velhttp"))
            lines.push_back(line);
    }
    return lines;
}

/* A line of the front end and one of the backend. */
inline support::log_line front(int level, const std::string &text)
{
    return {"net/velhttp", level, text};
}

inline support::log_line lite(int level, const std::string &text)
{
    return {"net/velhttp_lite", level, text};
}

/* "WORDS, error NUMBER (TEXT)", the end of many lines. */
inline std::string with_error(const std::string &words, vel_error_t error)
{
    return words + ", error " + std::to_string(error) + " (" + vel_error_string(error) + ")";
}

/* The lite backend, whose bodies go into the file "body" of the working directory. */
class client {
  public:
    client() : velhttp_(vel_http_lite_create())
    {
        vel_http_set_response_body_callback(velhttp_, on_body, this);
        vel_http_set_download_progress_callback(velhttp_, on_progress, this);
        vel_http_set_timeout(velhttp_, 120, 0); /* no test hangs */
    }
    ~client()
    {
        vel_http_destroy(velhttp_);
    }
    client(const client &) = delete;
    client &operator=(const client &) = delete;

    operator velhttp *() const
    {
        return velhttp_;
    }

    vel_error_t perform(const std::string &url)
    {
        file_ = vel_file_create_binary("body");
        const vel_error_t error = perform_into_file(url);
        EXPECT_EQ(vel_file_close(file_), 0);
        return error;
    }
    /* Does not keep the body, but gives its digest. */
    vel_error_t perform_digest(const std::string &url, std::string *digest)
    {
        file_ = popen("sha256sum >digest", "w");
        const vel_error_t error = perform_into_file(url);
        EXPECT_EQ(pclose(file_), 0);
        *digest = support::read_file("digest").substr(0, 64);
        return error;
    }
    unsigned int status() const
    {
        return vel_http_get_status_code(velhttp_);
    }
    std::string header(const char *name) const
    {
        const char *value = vel_http_get_response_header(velhttp_, name);
        return value ? value : "<none>";
    }
    std::string body() const
    {
        return support::read_file("body");
    }

    int64_t current = -1; /* as last told to the progress callback */
    int64_t total = -1;

  private:
    vel_error_t perform_into_file(const std::string &url)
    {
        EXPECT_EQ(vel_http_set_url(velhttp_, url.c_str()), VEL_ERROR_NONE);
        return vel_http_perform(velhttp_);
    }
    static vel_error_t on_body(const void *data, size_t size, void *context)
    {
        FILE *file = static_cast<client *>(context)->file_;
        return vel_file_write(file, data, size) == size ? VEL_ERROR_NONE : VEL_ERROR_WRITE;
    }
    static int on_progress(int64_t current, int64_t total, void *context)
    {
        static_cast<client *>(context)->current = current;
        static_cast<client *>(context)->total = total;
        return 0;
    }

    velhttp *velhttp_;
    FILE *file_ = nullptr;
};

} // namespace peers

#endif
