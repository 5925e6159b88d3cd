#ifndef TESTS_SUPPORT_NOISE_H
#define TESTS_SUPPORT_NOISE_H

/* Defines the platform's functions that noise comes from for the whole program, so that a test says
 * what there is. Include this in one source of a program. */

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "support/platform_function.h"

namespace support {

/* Takes the place of the files in /dev and /proc and of the clocks while it lives. One at a time. */
class noise {
  public:
    noise()
    {
        active_ = this;
    }
    ~noise()
    {
        active_ = nullptr;
    }
    noise(const noise &) = delete;
    noise &operator=(const noise &) = delete;

    std::map<std::string, std::string> files; /* under /dev and /proc these alone are there */
    time_t time = 1000000000;
    timeval timeofday = {1700000000, 123456};
    bool timeofdayfails = false;
    int step = 0; /* what is added to both clocks after each look */

    /* What happened, in order: "open NAME", "NAME: COUNT" when a file is closed, which tells how
     * many bytes were read, "time", "timeofday". */
    std::vector<std::string> events;
    size_t largestread = 0; /* in bytes, at once */

    std::vector<std::string> take_events()
    {
        std::vector<std::string> taken;
        taken.swap(events);
        return taken;
    }

    static noise *active()
    {
        return active_;
    }

    FILE *open(const char *name, const char *mode)
    {
        events.push_back(std::string("open ") + name);
        FILE *file;
        if (strncmp(name, "/dev/", 5) == 0 || strncmp(name, "/proc/", 6) == 0)
            file = made_up(name);
        else
            file = platform_function<FILE *(const char *, const char *)>("fopen")(name, mode);
        if (file)
            open_[file] = {name, 0};
        return file;
    }

    void note_read(FILE *file, size_t asked, size_t got)
    {
        const auto found = open_.find(file);
        if (found == open_.end())
            return;
        largestread = std::max(largestread, asked);
        found->second.count += got;
    }

    void note_close(FILE *file)
    {
        const auto found = open_.find(file);
        if (found == open_.end())
            return;
        events.push_back(found->second.name + ": " + std::to_string(found->second.count));
        open_.erase(found);
    }

  private:
    struct open_file {
        std::string name;
        size_t count;
    };

    FILE *made_up(const char *name)
    {
        const auto found = files.find(name);
        if (found == files.end()) {
            errno = ENOENT;
            return nullptr;
        }
        const int descriptor = memfd_create("noise", 0);
        const std::string &bytes = found->second;
        if (write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
            lseek(descriptor, 0, SEEK_SET) != 0)
            abort();
        return fdopen(descriptor, "rb");
    }

    static inline noise *active_;
    std::map<FILE *, open_file> open_;
};

} // namespace support

extern "C" {

FILE *fopen(const char *name, const char *mode)
{
    if (support::noise *noise = support::noise::active())
        return noise->open(name, mode);
    return support::platform_function<FILE *(const char *, const char *)>("fopen")(name, mode);
}

size_t fread(void *buffer, size_t size, size_t count, FILE *file)
{
    auto *next = support::platform_function<size_t(void *, size_t, size_t, FILE *)>("fread");
    const size_t got = next(buffer, size, count, file);
    if (support::noise *noise = support::noise::active())
        noise->note_read(file, size * count, size * got);
    return got;
}

int fclose(FILE *file)
{
    if (support::noise *noise = support::noise::active())
        noise->note_close(file);
    return support::platform_function<int(FILE *)>("fclose")(file);
}

time_t time(time_t *timeptr) noexcept
{
    support::noise *noise = support::noise::active();
    if (!noise)
        return support::platform_function<time_t(time_t *)>("time")(timeptr);
    noise->events.push_back("time");
    const time_t now = noise->time;
    noise->time += noise->step;
    if (timeptr)
        *timeptr = now;
    return now;
}

int gettimeofday(struct timeval *__restrict now, void *__restrict zone) noexcept
{
    support::noise *noise = support::noise::active();
    if (!noise)
        return support::platform_function<int(struct timeval *, void *)>("gettimeofday")(now, zone);
    noise->events.push_back("timeofday");
    if (noise->timeofdayfails) {
        errno = EFAULT;
        return -1;
    }
    *now = noise->timeofday;
    noise->timeofday.tv_usec += noise->step;
    return 0;
}

} // extern "C"

#endif
