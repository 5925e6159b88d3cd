#ifndef TESTS_SUPPORT_DIRCALLS_H
#define TESTS_SUPPORT_DIRCALLS_H

/* Defines the platform's functions about directories and links for the whole program, so that what
 * the library calls can be seen, refused and disturbed. A call that takes a directory's descriptor
 * counts as the plain one. Include this in one source of a program. */

#include <cerrno>
#include <cstdarg>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "support/platform_function.h"

namespace support {

/* A call that is refused. */
struct dir_refusal {
    const char *call;
    const char *name; /* the path, or its last component; NULL for any */
    int error;
    int passes = 0; /* so many such calls pass before */
};

/* Watches the calls while it lives, and refuses those given. One at a time, and one thread. */
class dir_watch {
  public:
    explicit dir_watch(std::vector<dir_refusal> refusals = {}) : refusals_(std::move(refusals))
    {
        active_ = this;
    }
    ~dir_watch()
    {
        active_ = nullptr;
    }
    dir_watch(const dir_watch &) = delete;
    dir_watch &operator=(const dir_watch &) = delete;

    /* Every call: its name and the path or paths, as in "mkdir a/b". */
    std::vector<std::string> made;

    /* Called ahead of each call with what is put in made; what it calls itself is not watched. */
    std::function<void(const std::string &)> before;

    int leavenumber = 0; /* what a readdir that works leaves in errno */
    mode_t mode = 0;     /* of the last mkdir */

    /* How many of the calls made begin with one of these names. */
    size_t count(const std::vector<std::string> &names) const
    {
        size_t found = 0;
        for (const std::string &one : made)
            for (const std::string &name : names)
                found += one == name || one.rfind(name + " ", 0) == 0;
        return found;
    }

    static dir_watch *active()
    {
        return active_;
    }

    /* Notes a call; whether it is refused. */
    bool refused(const std::string &call, const std::string &path, const std::string &shown)
    {
        made.push_back(shown.empty() ? call : call + " " + shown);
        if (before) {
            const std::string line = made.back();
            active_ = nullptr;
            before(line);
            active_ = this;
        }
        for (dir_refusal &one : refusals_)
            if (call == one.call && fits(one, path) && one.passes-- <= 0) {
                errno = one.error;
                return true;
            }
        return false;
    }

    std::map<DIR *, std::string> streams;
    std::map<int, std::string> descriptors;

  private:
    static bool fits(const dir_refusal &one, std::string_view path)
    {
        if (!one.name || path == one.name)
            return true;
        while (path.ends_with('/'))
            path.remove_suffix(1);
        return path.substr(path.rfind('/') + 1) == one.name;
    }

    static inline dir_watch *active_;
    std::vector<dir_refusal> refusals_;
};

inline bool dir_refused(const char *call, const std::string &path)
{
    dir_watch *watch = dir_watch::active();
    return watch && watch->refused(call, path, path);
}

inline const char *dir_stat_name(int flags)
{
    return flags & AT_SYMLINK_NOFOLLOW ? "lstat" : "stat";
}

} // namespace support

extern "C" {

DIR *opendir(const char *name)
{
    auto *next = support::platform_function<DIR *(const char *)>("opendir");
    if (support::dir_refused("opendir", name))
        return nullptr;
    DIR *dir = next(name);
    if (support::dir_watch *watch = support::dir_watch::active(); watch && dir)
        watch->streams[dir] = name;
    return dir;
}

DIR *fdopendir(int descriptor)
{
    DIR *dir = support::platform_function<DIR *(int)>("fdopendir")(descriptor);
    if (support::dir_watch *watch = support::dir_watch::active(); watch && dir)
        watch->streams[dir] = watch->descriptors[descriptor];
    return dir;
}

int openat(int at, const char *name, int flags, ...)
{
    auto *next = support::platform_function<int(int, const char *, int, ...)>("openat");
    va_list arguments;
    va_start(arguments, flags);
    const bool creates = (flags & O_CREAT) || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = creates ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if ((flags & O_DIRECTORY) && support::dir_refused("opendir", name))
        return -1;
    const int descriptor = next(at, name, flags, mode);
    if (support::dir_watch *watch = support::dir_watch::active(); watch && descriptor >= 0)
        watch->descriptors[descriptor] = name;
    return descriptor;
}

struct dirent *readdir(DIR *dir)
{
    auto *next = support::platform_function<struct dirent *(DIR *)>("readdir");
    support::dir_watch *watch = support::dir_watch::active();
    if (!watch)
        return next(dir);
    if (watch->refused("readdir", watch->streams[dir], ""))
        return nullptr;
    struct dirent *entry = next(dir);
    if (watch->leavenumber)
        errno = watch->leavenumber;
    return entry;
}

int closedir(DIR *dir)
{
    if (support::dir_watch *watch = support::dir_watch::active())
        watch->refused("closedir", watch->streams[dir], "");
    return support::platform_function<int(DIR *)>("closedir")(dir);
}

int lstat(const char *name, struct stat *data) noexcept
{
    if (support::dir_refused("lstat", name))
        return -1;
    return support::platform_function<int(const char *, struct stat *)>("lstat")(name, data);
}

int stat(const char *name, struct stat *data) noexcept
{
    if (support::dir_refused("stat", name))
        return -1;
    return support::platform_function<int(const char *, struct stat *)>("stat")(name, data);
}

int fstat(int descriptor, struct stat *data) noexcept
{
    if (support::dir_watch *watch = support::dir_watch::active();
        watch && watch->refused("fstat", watch->descriptors[descriptor], ""))
        return -1;
    return support::platform_function<int(int, struct stat *)>("fstat")(descriptor, data);
}

int fstatat(int at, const char *name, struct stat *data, int flags) noexcept
{
    if (support::dir_refused(support::dir_stat_name(flags), name))
        return -1;
    return support::platform_function<int(int, const char *, struct stat *, int)>("fstatat")(
        at, name, data, flags);
}

/* Not every libc declares it. */
int statx(int at, const char *name, int flags, unsigned int mask, struct statx *data) noexcept;

int statx(int at, const char *name, int flags, unsigned int mask, struct statx *data) noexcept
{
    if (support::dir_refused(support::dir_stat_name(flags), name))
        return -1;
    return support::platform_function<int(int, const char *, int, unsigned int, struct statx *)>(
        "statx")(at, name, flags, mask, data);
}

int mkdir(const char *name, mode_t mode) noexcept
{
    if (support::dir_watch *watch = support::dir_watch::active())
        watch->mode = mode;
    if (support::dir_refused("mkdir", name))
        return -1;
    return support::platform_function<int(const char *, mode_t)>("mkdir")(name, mode);
}

int rmdir(const char *name) noexcept
{
    if (support::dir_refused("rmdir", name))
        return -1;
    return support::platform_function<int(const char *)>("rmdir")(name);
}

int unlink(const char *name) noexcept
{
    if (support::dir_refused("unlink", name))
        return -1;
    return support::platform_function<int(const char *)>("unlink")(name);
}

int unlinkat(int at, const char *name, int flags) noexcept
{
    if (support::dir_refused(flags & AT_REMOVEDIR ? "rmdir" : "unlink", name))
        return -1;
    return support::platform_function<int(int, const char *, int)>("unlinkat")(at, name, flags);
}

int symlink(const char *target, const char *name) noexcept
{
    support::dir_watch *watch = support::dir_watch::active();
    if (watch && watch->refused("symlink", name, std::string(target) + " " + name))
        return -1;
    return support::platform_function<int(const char *, const char *)>("symlink")(target, name);
}

int link(const char *target, const char *name) noexcept
{
    support::dir_watch *watch = support::dir_watch::active();
    if (watch && watch->refused("link", name, std::string(target) + " " + name))
        return -1;
    return support::platform_function<int(const char *, const char *)>("link")(target, name);
}

} // extern "C"

#endif
