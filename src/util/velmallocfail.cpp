/* The database is a list in order of insertion, searched linearly, and a file to which each new
 * stack is appended before the failure is delivered: a program that crashes on the failure leaves
 * it behind, and the next run gets past that point. All memory here comes from the platform, as
 * vel_malloc would come back to this place. */
#include <vellib/velmallocfail.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <vellib/vellist.h>
#include <vellib/velstdio.h>

#include "platform/backtrace.h"
#include "util/velassert.h"
#include "util/velmallocfail_internal.h"

static const char vel_mallocfail_filename[] = "velmallocfail.db";
static constexpr size_t vel_mallocfail_linelen = 4096;
static constexpr int vel_mallocfail_maxframes = 50;

struct velmallocfail_entry {
    velmallocfail_entry *next;
    velmallocfail_entry *prev;
    char *stacktrace; /* owned, never NULL */
};

struct velmallocfail {
    vel_list entries;
};

static velmallocfail *vel_mallocfail_global;

static velmallocfail_entry *vel_mallocfail_head(velmallocfail *velmallocfail)
{
    return static_cast<velmallocfail_entry *>(velmallocfail->entries.head);
}

/* Adds one line of the file, without its line feed. */
static int vel_mallocfail_load_entry(velmallocfail *velmallocfail, const char *line, size_t len)
{
    auto *entry = static_cast<velmallocfail_entry *>(calloc(1, sizeof(velmallocfail_entry)));
    if (!entry) {
        vel_stdio_printf_stderr("vel_mallocfail_file_load: not enough memory for stackframe entry "
                                "(%lu bytes)\n",
                                static_cast<unsigned long>(sizeof(velmallocfail_entry)));
        return -1;
    }
    entry->stacktrace = static_cast<char *>(malloc(len + 1));
    if (!entry->stacktrace) {
        vel_stdio_printf_stderr("vel_mallocfail_file_load: not enough memory for stacktrace "
                                "(%lu bytes)\n",
                                static_cast<unsigned long>(len + 1));
        free(entry);
        return -1;
    }
    memcpy(entry->stacktrace, line, len + 1);
    VEL_LIST_ADD_TAIL(&velmallocfail->entries, entry);
    return 0;
}

/* A line longer than fgets takes at once arrives in pieces, and each becomes an entry. */
static int vel_mallocfail_load_lines(velmallocfail *velmallocfail, FILE *file, char *line)
{
    while (fgets(line, vel_mallocfail_linelen - 1, file)) {
        size_t len = strlen(line);
        if (len >= vel_mallocfail_linelen - 1) {
            vel_stdio_printf_stderr("vel_mallocfail_file_load: buffer too short for loading "
                                    "stackframes (%d bytes)\n",
                                    static_cast<int>(vel_mallocfail_linelen));
            return -1;
        }
        if (len > 0 && line[len - 1] == '\n')
            line[--len] = '\0';
        if (vel_mallocfail_load_entry(velmallocfail, line, len) != 0)
            return -1;
    }
    return 0;
}

static int vel_mallocfail_file_load(velmallocfail *velmallocfail)
{
    FILE *file = fopen(vel_mallocfail_filename, "r");
    if (!file)
        return -1;

    int result = -1;
    auto *line = static_cast<char *>(malloc(vel_mallocfail_linelen));
    if (!line) {
        vel_stdio_printf_stderr("vel_mallocfail_file_load: not enough memory for line buffer "
                                "(%d bytes)\n",
                                static_cast<int>(vel_mallocfail_linelen));
    } else {
        line[vel_mallocfail_linelen - 1] = '\0';
        result = vel_mallocfail_load_lines(velmallocfail, file, line);
        free(line);
    }
    fclose(file);
    return result;
}

/* The file is opened for each record, so that each is on disk when its allocation fails. */
static int vel_mallocfail_file_append(const char *stacktrace)
{
    FILE *file = fopen(vel_mallocfail_filename, "a");
    if (!file) {
        vel_stdio_printf_stderr("unable to append stacktrace in file %s\n",
                                vel_mallocfail_filename);
        return -1;
    }

    int result = 0;
    if (fprintf(file, "%s\n", stacktrace) < 0) {
        vel_stdio_printf_stderr("unable to write stacktrace in file %s\n", vel_mallocfail_filename);
        result = -1;
    }
    if (fclose(file) != 0)
        result = -1;
    return result;
}

static void vel_mallocfail_destroy(velmallocfail *velmallocfail)
{
    VEL_ASSERT(velmallocfail != NULL);

    while (velmallocfail_entry *entry = vel_mallocfail_head(velmallocfail)) {
        VEL_LIST_REMOVE(&velmallocfail->entries, entry);
        VEL_ASSERT(entry->stacktrace != NULL);
        free(entry->stacktrace);
        free(entry);
    }
    free(velmallocfail);
}

static bool vel_mallocfail_find(velmallocfail *velmallocfail, const char *stacktrace)
{
    for (auto *entry = vel_mallocfail_head(velmallocfail); entry; entry = entry->next) {
        VEL_ASSERT(entry->stacktrace != NULL);
        if (strcmp(entry->stacktrace, stacktrace) == 0)
            return true;
    }
    return false;
}

[[gnu::noinline]] bool vel_mallocfail_checkfail()
{
    if (!vel_mallocfail_global) {
        auto *velmallocfail =
            static_cast<struct velmallocfail *>(calloc(1, sizeof(struct velmallocfail)));
        if (!velmallocfail)
            return true;
        vel_list_init(&velmallocfail->entries);
        /* No file is the normal first run, and what was read before a failure counts. */
        (void)vel_mallocfail_file_load(velmallocfail);
        vel_mallocfail_global = velmallocfail;
    }

    char *stacktrace = vel_mallocfail_backtrace_stacktrace();
    VEL_ASSERT(stacktrace != NULL);

    if (vel_mallocfail_find(vel_mallocfail_global, stacktrace)) {
        free(stacktrace);
        return false;
    }

    (void)vel_mallocfail_file_append(stacktrace);
    auto *entry = static_cast<velmallocfail_entry *>(calloc(1, sizeof(velmallocfail_entry)));
    if (!entry) {
        free(stacktrace);
        return true;
    }
    entry->stacktrace = stacktrace;
    VEL_LIST_ADD_TAIL(&vel_mallocfail_global->entries, entry);
    return true;
}

void *vel_mallocfail_malloc(size_t size)
{
    return vel_mallocfail_checkfail() ? nullptr : malloc(size);
}

void *vel_mallocfail_calloc(size_t count, size_t size)
{
    return vel_mallocfail_checkfail() ? nullptr : calloc(count, size);
}

void vel_mallocfail_uninit(void)
{
    if (!vel_mallocfail_global)
        return;
    velmallocfail *velmallocfail = vel_mallocfail_global;
    vel_mallocfail_global = nullptr;
    vel_mallocfail_destroy(velmallocfail);
}

/* The mechanism's own frames at the inner end. Glibc has no name for an internal function of a
 * shared object, so its "(+0x12e9)" mostly stays; the text is an identity all the same. */
static int vel_mallocfail_skip_frames(int framecount, char **symbols)
{
    int frame = 0;
    if (frame < framecount && strstr(symbols[frame], "(vel_mallocfail_backtrace_stacktrace+"))
        frame++;
    for (const char *own : {"()", "(vel_mallocfail_malloc+", "(vel_mallocfail_calloc+"}) {
        if (frame < framecount && strstr(symbols[frame], own))
            frame++;
    }
    return frame;
}

[[gnu::noinline]] int vel_mallocfail_backtrace_stacktrace_generate(char *buffer, size_t *bufferlen,
                                                                   int framecount,
                                                                   void *const *frames,
                                                                   char **symbols)
{
    VEL_ASSERT(bufferlen != NULL);
    VEL_ASSERT(buffer != NULL || *bufferlen == 0);
    VEL_ASSERT(framecount >= 0);
    VEL_ASSERT(frames != NULL);
    VEL_ASSERT(symbols != NULL);

    const int firstframe = vel_mallocfail_skip_frames(framecount, symbols);
    int result = 0;
    size_t pos = 0;
    for (int frame = firstframe; frame < framecount; frame++) {
        const char *symbol = symbols[frame];
        const char *address = strrchr(symbol, '[');
        const size_t len = address && address != symbol ? static_cast<size_t>(address - symbol) - 1
                                                        : strlen(symbol);
        if (frame != firstframe && vel_mallocfail_append(buffer, *bufferlen, &pos, ",", 1) != 0)
            result = -1;
        if (vel_mallocfail_append(buffer, *bufferlen, &pos, symbol, len) != 0)
            result = -1;
    }
    *bufferlen = pos;
    return result;
}

[[gnu::noinline]] char *vel_mallocfail_backtrace_stacktrace(void)
{
    void *frames[vel_mallocfail_maxframes];
    const int framecount = vel_backtrace(frames, vel_mallocfail_maxframes);
    char **symbols = vel_backtrace_symbols(frames, framecount);
    VEL_ASSERT(symbols != NULL);

    size_t stacktracelen = 0;
    int err = vel_mallocfail_backtrace_stacktrace_generate(nullptr, &stacktracelen, framecount,
                                                           frames, symbols);
    VEL_ASSERT(err == -1 || stacktracelen == 0);

    auto *stacktrace = static_cast<char *>(malloc(stacktracelen + 1));
    if (stacktrace) {
        stacktrace[stacktracelen] = '\0';
        if (stacktracelen != 0) {
            err = vel_mallocfail_backtrace_stacktrace_generate(stacktrace, &stacktracelen,
                                                               framecount, frames, symbols);
            VEL_ASSERT(err == 0);
        }
    }
    free(symbols);
    return stacktrace;
}
