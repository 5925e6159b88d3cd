/* What the library weighs beside others of its kind: the file, what of it is written at load, how long
 * a program takes to start that links it and does nothing, and how long loading at run time takes. */

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <elf.h>
#include <link.h>

#include "bench.h"

namespace {

void require(bool holds, const std::string &what)
{
    if (holds)
        return;
    fprintf(stderr, "%s\n", what.c_str());
    exit(1);
}

struct contender {
    const char *name;
    const char *program; /* links it and returns */
    const char *library; /* as dlopen takes it, or NULL */
};

/* The programs stand beside this one; the library's path is known, the peers' are the loader's. */
const contender kContenders[] = {
    {"vellib", "weight-vellib", VEL_LIBRARY}, {"GLib", "weight-glib", "libglib-2.0.so.0"},
    {"libuv", "weight-libuv", "libuv.so.1"},  {"libcurl", "weight-libcurl", "libcurl.so.4"},
    {"libc alone", "weight-none", nullptr},
};
const size_t kLibraries = std::size(kContenders) - 1;
const int kRounds = 300;

/* ---- Files ---- */

std::string read_file(const std::string &name)
{
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct figures {
    double file;    /* KiB without symbols for debugging */
    double shared;  /* KiB that all processes share: code and constants */
    double written; /* KiB of each process: data, and pointers that the loader sets */
    double zeroed;  /* KiB that are zero at first */
    double relocations;
};

template <typename Record> Record record_at(const std::string &image, size_t position)
{
    require(position + sizeof(Record) <= image.size(), "the file is cut");
    Record record;
    memcpy(&record, image.data() + position, sizeof record);
    return record;
}

/* How many relocations a section has; those of the packed form stand in words of which each other
 * than an address is a map of 63 places. */
double count_relocations(const std::string &image, const ElfW(Shdr) & section)
{
    if (section.sh_type == SHT_RELA)
        return static_cast<double>(section.sh_size / sizeof(ElfW(Rela)));
    if (section.sh_type != SHT_RELR)
        return 0;
    double count = 0;
    for (size_t i = 0; i < section.sh_size / sizeof(ElfW(Relr)); i++) {
        const auto word = record_at<ElfW(Relr)>(image, section.sh_offset + i * sizeof(ElfW(Relr)));
        count += word % 2 == 0 ? 1 : __builtin_popcountll(word) - 1;
    }
    return count;
}

figures weigh(const std::string &library)
{
    char stripped[] = "/tmp/weightXXXXXX";
    const int fd = mkstemp(stripped);
    require(fd != -1, "no temporary file");
    close(fd);
    require(system(("strip -o " + std::string(stripped) + " '" + library + "'").c_str()) == 0,
            "cannot strip " + library);
    const std::string image = read_file(stripped);
    unlink(stripped);

    figures found = {static_cast<double>(image.size()) / 1024, 0, 0, 0, 0};
    const auto header = record_at<ElfW(Ehdr)>(image, 0);
    for (size_t i = 0; i < header.e_phnum; i++) {
        const auto segment = record_at<ElfW(Phdr)>(image, header.e_phoff + i * sizeof(ElfW(Phdr)));
        if (segment.p_type != PT_LOAD)
            continue;
        double &sum = segment.p_flags & PF_W ? found.written : found.shared;
        sum += static_cast<double>(segment.p_filesz) / 1024;
        found.zeroed += static_cast<double>(segment.p_memsz - segment.p_filesz) / 1024;
    }
    for (size_t i = 0; i < header.e_shnum; i++)
        found.relocations += count_relocations(
            image, record_at<ElfW(Shdr)>(image, header.e_shoff + i * sizeof(ElfW(Shdr))));
    return found;
}

/* ---- Programs ---- */

std::string directory_of_programs()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().string() + "/";
}

void run(const std::string &program)
{
    char *arguments[] = {const_cast<char *>(program.c_str()), nullptr};
    pid_t child;
    int status;
    require(posix_spawn(&child, arguments[0], nullptr, nullptr, arguments, environ) == 0 &&
                waitpid(child, &status, 0) == child && status == 0,
            "cannot run " + program);
}

/* What weight-load prints: files, and the nanoseconds in the last line. */
std::vector<std::string> load(const std::string &directory, const contender &contender)
{
    FILE *pipe = popen((directory + "weight-load '" + contender.library + "'").c_str(), "re");
    require(pipe, "cannot run weight-load");
    std::string text;
    for (char buffer[4096]; fgets(buffer, sizeof buffer, pipe);)
        text += buffer;
    require(pclose(pipe) == 0, "weight-load failed");
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/* The files of a library and of all that it needs beyond libc, its own first. */
std::vector<std::string> files_of(const std::string &directory, const contender &contender)
{
    std::vector<std::string> files = load(directory, contender);
    files.pop_back();
    const std::string own = std::filesystem::path(contender.library).filename();
    std::erase_if(files, [](const std::string &file) {
        const std::string name = std::filesystem::path(file).filename();
        for (const char *libc :
             {"libc.", "libm.", "ld-linux", "libdl.", "libpthread.", "librt.", "libresolv."})
            if (name.starts_with(libc))
                return true;
        return false;
    });
    const auto found = std::find_if(files.begin(), files.end(), [&](const std::string &file) {
        return std::filesystem::path(file).filename() == own;
    });
    require(found != files.end(), "did not load " + own);
    std::iter_swap(files.begin(), found);
    return files;
}

void show_sizes(const std::string &directory)
{
    struct row {
        const char *name;
        double figures::*value;
    };
    const row rows[] = {
        {"stripped file, KiB", &figures::file},
        {"code and constants, KiB", &figures::shared},
        {"written by each process, KiB", &figures::written},
        {"zero at first, KiB", &figures::zeroed},
        {"relocations", &figures::relocations},
    };
    std::vector<std::string> names;
    std::vector<figures> own;
    std::vector<double> files, sizes, relocations;
    for (size_t i = 0; i < kLibraries; i++) {
        names.push_back(kContenders[i].name);
        const std::vector<std::string> all = files_of(directory, kContenders[i]);
        files.push_back(static_cast<double>(all.size()));
        sizes.push_back(0);
        relocations.push_back(0);
        for (const std::string &file : all) {
            const figures found = weigh(file);
            if (file == all[0])
                own.push_back(found);
            sizes.back() += found.file;
            relocations.back() += found.relocations;
        }
    }
    bench::print_header("the library", names);
    for (const row &row : rows) {
        std::vector<double> values;
        for (const figures &found : own)
            values.push_back(found.*row.value);
        bench::print_row(row.name, values);
    }
    bench::print_header("with all it needs beyond libc", names);
    bench::print_row("files", files);
    bench::print_row("stripped files, KiB", sizes);
    bench::print_row("relocations", relocations);
}

/* The least, since a new process is at the mercy of whatever else the machine does. */
void show_times(const std::string &directory)
{
    const bench::series starts = bench::take_turns(std::size(kContenders), kRounds, [&](size_t i) {
        return bench::sample(1, [&] { run(directory + kContenders[i].program); });
    });
    const bench::series loads = bench::take_turns(kLibraries, kRounds, [&](size_t i) {
        return std::stod(load(directory, kContenders[i]).back());
    });

    std::vector<double> start, loading;
    for (size_t i = 0; i < std::size(kContenders); i++) {
        start.push_back(starts.lowest(i) / 1000);
        loading.push_back(i < kLibraries ? loads.lowest(i) / 1000 : 0);
    }
    bench::print_header("us, the least of many", bench::names_of(kContenders));
    bench::print_row("a program that does nothing, from start to end", start);
    bench::print_row("dlopen and dlclose", loading);
}

} // namespace

int main()
{
    const std::string directory = directory_of_programs();
    show_sizes(directory);
    show_times(directory);
    return 0;
}
