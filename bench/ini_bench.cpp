/* INI files against GKeyFile of GLib, and reading against inih, which calls a function for each key
 * and keeps nothing. GKeyFile keeps comments here, as the library does. */

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <glib.h>
#include <ini.h>

#include <vellib/velinifile.h>
#include <vellib/vellog.h>

#include "bench.h"

namespace {

constexpr int kSections = 100;

void require(bool holds)
{
    if (!holds)
        abort();
}

std::string section_name(int section)
{
    return "section-" + std::to_string(section);
}

std::string key_name(int key)
{
    return "key-" + std::to_string(key);
}

/* A file of so many sections with so many keys each, and a comment here and there. */
class file {
  public:
    explicit file(int keys) : path_("/tmp/vel-bench-" + std::to_string(keys) + ".ini")
    {
        std::ofstream out(path_);
        for (int section = 0; section < kSections; section++) {
            out << "# What section " << section << " is about\n[" << section_name(section) << "]\n";
            for (int key = 0; key < keys; key++)
                out << key_name(key) << "=the value number " << key << "\n";
            out << "\n";
        }
        require(out.good());
    }

    ~file()
    {
        std::filesystem::remove(path_);
    }

    file(const file &) = delete;
    file &operator=(const file &) = delete;

    const char *path() const
    {
        return path_.c_str();
    }

  private:
    std::string path_;
};

velinifile *read_vel(const char *path)
{
    vel_error_t error;
    velinifile *inifile = vel_inifile_create_from_file(path, &error);
    require(inifile);
    return inifile;
}

GKeyFile *read_glib(const char *path)
{
    GKeyFile *keyfile = g_key_file_new();
    require(g_key_file_load_from_file(keyfile, path, G_KEY_FILE_KEEP_COMMENTS, nullptr));
    return keyfile;
}

int take_inih(void *count, const char *, const char *, const char *)
{
    ++*static_cast<size_t *>(count);
    return 1;
}

void measure_reading(const char *row, int keys, size_t calls)
{
    const file file(keys);
    bench::measure("us", row,
                   {{"vellib", [&] { vel_inifile_destroy(read_vel(file.path())); }},
                    {"GKeyFile", [&] { g_key_file_free(read_glib(file.path())); }},
                    {"inih",
                     [&] {
                         size_t count = 0;
                         require(ini_parse(file.path(), take_inih, &count) == 0);
                         require(count ==
                                 static_cast<size_t>(kSections) * static_cast<size_t>(keys));
                     }}},
                   51, calls, 1e3);
}

/* Each key once, in an order that jumps. GKeyFile hands out copies; g_key_file_get_value copies
 * least. */
void measure_keys(int keys)
{
    const file file(keys);
    velinifile *inifile = read_vel(file.path());
    GKeyFile *keyfile = read_glib(file.path());

    struct place {
        std::string section, key;
    };
    std::vector<place> places;
    const int count = kSections * keys;
    for (int i = 0; i < count; i++) {
        const int place = static_cast<int>(i * 7919L % count);
        places.push_back({section_name(place / keys), key_name(place % keys)});
    }

    bench::measure(
        "ns", "get, of 2000 keys",
        {{"vellib",
          [&] {
              for (const place &p : places)
                  bench::keep(vel_inifile_get(inifile, p.section.c_str(), p.key.c_str()));
          }},
         {"GKeyFile",
          [&] {
              for (const place &p : places) {
                  gchar *value =
                      g_key_file_get_value(keyfile, p.section.c_str(), p.key.c_str(), nullptr);
                  bench::keep(value);
                  g_free(value);
              }
          }}},
        101, 1, count);
    bench::measure("ns", "set, of 2000 keys",
                   {{"vellib",
                     [&] {
                         for (const place &p : places)
                             require(vel_inifile_set(inifile, p.section.c_str(), p.key.c_str(),
                                                     "another value") == VEL_ERROR_NONE);
                     }},
                    {"GKeyFile",
                     [&] {
                         for (const place &p : places)
                             g_key_file_set_value(keyfile, p.section.c_str(), p.key.c_str(),
                                                  "another value");
                     }}},
                   101, 1, count);
    g_key_file_free(keyfile);
    vel_inifile_destroy(inifile);
}

} // namespace

int main()
{
    vel_log_stderr_disable(nullptr);
    measure_reading("read 60 KB", 20, 10);
    measure_reading("read 1 MB", 330, 1);
    measure_keys(20);
    return 0;
}
