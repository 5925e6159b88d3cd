#ifndef TESTS_SUPPORT_FILECALLS_H
#define TESTS_SUPPORT_FILECALLS_H

/* Defines the platform's functions about files for the whole program, so that what the library
 * calls can be seen and refused. Include this in one source of a program. */

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "support/platform_function.h"
#include "support/tempdir.h"

namespace support {

/* A call of the platform that is refused: the first, second, ... of its name. */
struct refusal {
    const char *call;
    int occurrence;
    int error;
};

/* The calls of the platform about files that are made while this is on. */
inline bool watching;
inline std::vector<std::string> made;
inline std::map<std::string, int> counts;
inline std::vector<refusal> refusals;
inline std::vector<FILE *> watched; /* streams: those that were opened meanwhile, and given ones */
inline bool pretend;                /* seeking does nothing, and works */
inline bool dirtyerrno;             /* what works leaves a number in errno */

inline bool is_watched(FILE *file)
{
    return watching && std::find(watched.begin(), watched.end(), file) != watched.end();
}

/* Notes a call; whether it is refused. */
inline bool refused(const std::string &call, const std::string &arguments)
{
    made.push_back(call + arguments);
    const int occurrence = ++counts[call];
    for (const refusal &one : refusals)
        if (call == one.call && occurrence == one.occurrence) {
            errno = one.error;
            return true;
        }
    return false;
}

template <typename Result> Result dirty(Result result)
{
    if (dirtyerrno)
        errno = ENOTTY;
    return result;
}

/* Watches the calls while it lives, and refuses those given. */
class watch {
  public:
    explicit watch(std::vector<refusal> refuse = {}, std::vector<FILE *> files = {})
    {
        made.clear();
        counts.clear();
        refusals = std::move(refuse);
        watched = std::move(files);
        watching = true;
    }
    ~watch()
    {
        watching = false;
        pretend = false;
        dirtyerrno = false;
    }
    watch(const watch &) = delete;
    watch &operator=(const watch &) = delete;
};

/* The files of the working directory with their contents. */
using directory = std::map<std::string, std::string>;

inline directory files_here()
{
    directory files;
    for (const auto &entry : std::filesystem::directory_iterator("."))
        files[entry.path().filename()] = read_file(entry.path());
    return files;
}

} // namespace support

extern "C" {

FILE *fopen(const char *name, const char *mode)
{
    auto *next = support::platform_function<FILE *(const char *, const char *)>("fopen");
    if (!support::watching)
        return next(name, mode);
    if (support::refused("fopen", std::string(" ") + name + " " + mode))
        return nullptr;
    FILE *file = next(name, mode);
    if (file)
        support::watched.push_back(file);
    return file;
}

int fclose(FILE *file)
{
    auto *next = support::platform_function<int(FILE *)>("fclose");
    if (!support::is_watched(file))
        return next(file);
    const bool fails = support::refused("fclose", "");
    const int error = errno;
    support::watched.erase(std::find(support::watched.begin(), support::watched.end(), file));
    next(file);
    if (fails)
        errno = error;
    return fails ? EOF : support::dirty(0);
}

size_t fread(void *buffer, size_t size, size_t count, FILE *file)
{
    auto *next = support::platform_function<size_t(void *, size_t, size_t, FILE *)>("fread");
    if (!support::is_watched(file))
        return next(buffer, size, count, file);
    if (support::refused("fread", " " + std::to_string(size) + " " + std::to_string(count)))
        return count - 1;
    return next(buffer, size, count, file);
}

/* A refused write writes all but the last byte. */
size_t fwrite(const void *buffer, size_t size, size_t count, FILE *file)
{
    auto *next = support::platform_function<size_t(const void *, size_t, size_t, FILE *)>("fwrite");
    if (!support::is_watched(file))
        return next(buffer, size, count, file);
    if (support::refused("fwrite", " " + std::to_string(size) + " " + std::to_string(count))) {
        const int error = errno;
        count = next(buffer, size, count - 1, file);
        errno = error;
        return count;
    }
    return next(buffer, size, count, file);
}

int fseek(FILE *file, long offset, int whence)
{
    auto *next = support::platform_function<int(FILE *, long, int)>("fseek");
    if (!support::is_watched(file))
        return next(file, offset, whence);
    if (support::refused("fseek", " " + std::to_string(offset) + " " + std::to_string(whence)))
        return -2;
    return support::pretend ? 0 : next(file, offset, whence);
}

void rewind(FILE *file)
{
    if (support::is_watched(file))
        support::refused("rewind", "");
    support::platform_function<void(FILE *)>("rewind")(file);
}

long ftell(FILE *file)
{
    if (support::is_watched(file) && support::refused("ftell", ""))
        return -1;
    return support::platform_function<long(FILE *)>("ftell")(file);
}

int fgetpos(FILE *file, fpos_t *position)
{
    if (support::is_watched(file) && support::refused("fgetpos", ""))
        return -1;
    return support::platform_function<int(FILE *, fpos_t *)>("fgetpos")(file, position);
}

int fsetpos(FILE *file, const fpos_t *position)
{
    if (support::is_watched(file) && support::refused("fsetpos", ""))
        return -1;
    return support::platform_function<int(FILE *, const fpos_t *)>("fsetpos")(file, position);
}

int stat(const char *name, struct stat *data) noexcept
{
    if (support::watching && support::refused("stat", std::string(" ") + name))
        return -1;
    return support::platform_function<int(const char *, struct stat *)>("stat")(name, data);
}

int unlink(const char *name) noexcept
{
    if (support::watching && support::refused("unlink", std::string(" ") + name))
        return -1;
    const int result = support::platform_function<int(const char *)>("unlink")(name);
    return support::watching ? support::dirty(result) : result;
}

int rename(const char *oldname, const char *newname) noexcept
{
    if (support::watching && support::refused("rename", std::string(" ") + oldname + " " + newname))
        return -1;
    return support::platform_function<int(const char *, const char *)>("rename")(oldname, newname);
}

} // extern "C"

#endif
