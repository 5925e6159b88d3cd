/* Programs start themselves and each other also where an emulator runs them, whose kernel knows only
 * its own machine: a file of this program's kind is handed to the emulator in front of it. In the
 * build for an emulator the words of its command stand in VEL_TEST_EMULATOR. */
#ifdef VEL_TEST_EMULATOR

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

const char *const kEmulator[] = {VEL_TEST_EMULATOR};
const size_t kEmulatorWords = sizeof(kEmulator) / sizeof(kEmulator[0]);
const size_t kMostWords = 64;

bool read_header(const char *path, Elf64_Ehdr *header)
{
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1)
        return false;
    const bool whole = read(fd, header, sizeof *header) == sizeof *header;
    close(fd);
    return whole && memcmp(header->e_ident, ELFMAG, SELFMAG) == 0;
}

bool is_emulated(const char *path)
{
    Elf64_Ehdr own, other;
    return read_header("/proc/self/exe", &own) && read_header(path, &other) &&
           memcmp(&own.e_ident, &other.e_ident, EI_VERSION) == 0 &&
           own.e_machine == other.e_machine;
}

} // namespace

extern "C" int execv(const char *path, char *const *arguments)
{
    if (!is_emulated(path))
        return execve(path, arguments, environ);

    const char *words[kMostWords + 1] = {};
    size_t count = 0;
    for (const char *word : kEmulator)
        words[count++] = word;
    words[count++] = path;
    for (size_t i = 1; arguments[0] && arguments[i]; i++) {
        if (count == kMostWords) {
            errno = E2BIG;
            return -1;
        }
        words[count++] = arguments[i];
    }
    return execve(words[0], const_cast<char *const *>(words), environ);
}

extern "C" int execl(const char *path, const char *argument, ...)
{
    const char *words[kMostWords + 1] = {argument};
    va_list arguments;
    va_start(arguments, argument);
    for (size_t i = 1; words[i - 1] && i < kMostWords; i++)
        words[i] = va_arg(arguments, const char *);
    va_end(arguments);
    return execv(path, const_cast<char *const *>(words));
}

#endif
