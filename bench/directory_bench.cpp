/* Walks of a large directory against GLib's GDir, by names alone. The normalized walk is given names
 * of ASCII, which need no conversion, and names with composed and decomposed accents. GDir hands out
 * names as they are stored, which g_utf8_normalize then converts.
 *
 * The directory is made in the memory of the machine, if /dev/shm is there, or else below /tmp. */

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <unistd.h>

#include <glib.h>

#include <vellib/veldir.h>
#include <vellib/velutf8dir.h>

#include "bench.h"

namespace {

constexpr size_t kEntries = 100000;

void require(bool holds)
{
    if (!holds)
        abort();
}

/* A directory of empty files, for the time of the program. */
struct directory {
    std::string path;

    explicit directory(const std::function<std::string(size_t)> &name)
    {
        const bool memory = access("/dev/shm", W_OK) == 0;
        path = std::string(memory ? "/dev/shm" : "/tmp") + "/vellib-bench-XXXXXX";
        require(mkdtemp(path.data()) != nullptr);
        for (size_t i = 0; i < kEntries; i++)
            require(std::ofstream(path + "/" + name(i)).good());
    }

    ~directory()
    {
        require(vel_dir_remove_recursive(path.c_str()) == 0);
    }

    directory(const directory &) = delete;
    directory &operator=(const directory &) = delete;
};

struct contender {
    const char *name;
    std::function<size_t(const char *)> walk;
};

const contender kContenders[] = {
    {"veldir",
     [](const char *path) {
         veldir *dir = vel_dir_open(path);
         size_t count = 0;
         for (; vel_dir_next(dir) == 0; count++)
             bench::keep(vel_dir_fetch_name(dir));
         vel_dir_destroy(dir);
         return count - 2;
     }},
    {"velutf8dir",
     [](const char *path) {
         velutf8dir *dir = vel_utf8dir_open(path);
         size_t count = 0;
         for (; vel_utf8dir_next(dir) == 0; count++)
             bench::keep(vel_utf8dir_fetch_name(dir));
         vel_utf8dir_destroy(dir);
         return count - 2;
     }},
    {"GDir",
     [](const char *path) {
         GDir *dir = g_dir_open(path, 0, nullptr);
         size_t count = 0;
         for (const char *name; (name = g_dir_read_name(dir)); count++)
             bench::keep(name);
         g_dir_close(dir);
         return count;
     }},
    {"GDir + g_utf8_normalize",
     [](const char *path) {
         GDir *dir = g_dir_open(path, 0, nullptr);
         size_t count = 0;
         for (const char *name; (name = g_dir_read_name(dir)); count++) {
             char *normalized = g_utf8_normalize(name, -1, G_NORMALIZE_NFC);
             bench::keep(normalized);
             g_free(normalized);
         }
         g_dir_close(dir);
         return count;
     }},
};

void bench_directory(const std::string &name, const directory &given)
{
    bench::measure_row(name, std::size(kContenders), 15, [&](size_t i) {
        return bench::sample(1, kEntries,
                             [&] { require(kContenders[i].walk(given.path.c_str()) == kEntries); });
    });
}

} // namespace

int main()
{
    bench::print_header("ns an entry", bench::names_of(kContenders));
    bench_directory("ASCII names", directory([](size_t i) {
                        return "holiday-picture-" + std::to_string(i) + ".jpeg";
                    }));
    bench_directory("composed names", directory([](size_t i) {
                        return "fot\u00f3-de-la-monta\u00f1a-" + std::to_string(i) + ".jpeg";
                    }));
    bench_directory("decomposed names", directory([](size_t i) {
                        return "foto\u0301-de-la-montan\u0303a-" + std::to_string(i) + ".jpeg";
                    }));
    return 0;
}
