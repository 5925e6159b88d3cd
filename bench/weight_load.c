/* Loads a library into a process that has nothing but libc, and says in nanoseconds how long that and
 * giving it back took; then, one a line, the files that came with it. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <link.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

static int show(struct dl_phdr_info *info, size_t size, void *context)
{
    (void)size;
    (void)context;
    if (strchr(info->dlpi_name, '/'))
        printf("%s\n", info->dlpi_name);
    return 0;
}

static double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec * 1e9 + (double)time.tv_nsec;
}

int main(int argc, char **argv)
{
    const double start = now();
    void *library = dlopen(argc == 2 ? argv[1] : "", RTLD_NOW);
    const double loaded = now();
    if (!library) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    (void)dl_iterate_phdr(show, NULL);
    const double listed = now();
    (void)dlclose(library);
    printf("%.0f\n", now() - listed + (loaded - start));
    return 0;
}
