/* The unwinder of the compiler's runtime, which is everywhere a C++ compiler is. Names come from
 * the symbol table of the object's file, since dladdr knows exported functions only. */
#include "platform/unwind.h"

#include <cstdio>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <unwind.h>

static _Unwind_Reason_Code vel_unwind_collect(struct _Unwind_Context *frame, void *data)
{
    auto *context = static_cast<vel_unwind_context *>(data);
    if (context->framecount == sizeof(context->frames) / sizeof(context->frames[0]))
        return _URC_END_OF_STACK;
    context->frames[context->framecount++] = {_Unwind_GetIP(frame), _Unwind_GetCFA(frame)};
    return _URC_NO_REASON;
}

[[gnu::noinline]] int vel_unwind_getcontext(vel_unwind_context *context)
{
    context->framecount = 0;
    _Unwind_Backtrace(vel_unwind_collect, context);
    if (context->framecount < 2)
        return -1;
    /* The first frame is this function's. */
    context->framecount--;
    memmove(context->frames, context->frames + 1, context->framecount * sizeof(context->frames[0]));
    return 0;
}

int vel_unwind_init_local(vel_unwind_cursor *cursor, const vel_unwind_context *context)
{
    *cursor = {context, 0};
    return 0;
}

int vel_unwind_step(vel_unwind_cursor *cursor)
{
    if (cursor->frame + 1 >= cursor->context->framecount)
        return 0;
    cursor->frame++;
    /* The outermost frame has nowhere to go on. */
    return vel_unwind_get_ip(cursor) != 0 ? 1 : 0;
}

struct vel_unwind_symbol {
    uintptr_t address; /* in the file's own addresses */
    char *buffer;
    size_t size;
    uintptr_t *offsetptr;
};

/* Looks through one symbol table for the function that holds the address. */
static int vel_unwind_search(const char *image, const ElfW(Shdr) * table, const ElfW(Shdr) * names,
                             const vel_unwind_symbol *wanted)
{
    const auto *symbols = reinterpret_cast<const ElfW(Sym) *>(image + table->sh_offset);
    for (size_t i = 0; i < table->sh_size / sizeof(ElfW(Sym)); i++) {
        const ElfW(Sym) *symbol = &symbols[i];
        if ((symbol->st_info & 0xf) != STT_FUNC || wanted->address < symbol->st_value ||
            wanted->address - symbol->st_value >= symbol->st_size)
            continue;
        snprintf(wanted->buffer, wanted->size, "%s", image + names->sh_offset + symbol->st_name);
        *wanted->offsetptr = wanted->address - symbol->st_value;
        return 0;
    }
    return -1;
}

static int vel_unwind_search_image(const char *image, size_t imagesize,
                                   const vel_unwind_symbol *wanted)
{
    const auto *header = reinterpret_cast<const ElfW(Ehdr) *>(image);
    if (imagesize < sizeof(*header) || memcmp(header->e_ident, ELFMAG, SELFMAG) != 0 ||
        header->e_shoff + header->e_shnum * sizeof(ElfW(Shdr)) > imagesize)
        return -1;
    const auto *sections = reinterpret_cast<const ElfW(Shdr) *>(image + header->e_shoff);
    for (size_t i = 0; i < header->e_shnum; i++) {
        if (sections[i].sh_type != SHT_SYMTAB && sections[i].sh_type != SHT_DYNSYM)
            continue;
        if (vel_unwind_search(image, &sections[i], &sections[sections[i].sh_link], wanted) == 0)
            return 0;
    }
    return -1;
}

static int vel_unwind_search_file(const char *filename, const vel_unwind_symbol *wanted)
{
    const int fd = open(filename, O_RDONLY | O_CLOEXEC);
    if (fd == -1)
        return -1;
    int result = -1;
    struct stat status;
    if (fstat(fd, &status) == 0 && status.st_size > 0) {
        const auto size = static_cast<size_t>(status.st_size);
        void *image = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
        if (image != MAP_FAILED) {
            result = vel_unwind_search_image(static_cast<const char *>(image), size, wanted);
            munmap(image, size);
        }
    }
    close(fd);
    return result;
}

/* The loaded object that an address is in. */
struct vel_unwind_object {
    uintptr_t ip;
    uintptr_t base;       /* what is added to the file's own addresses */
    const char *filename; /* NULL as long as it is not found */
    size_t visited;
};

static int vel_unwind_visit(struct dl_phdr_info *info, size_t, void *context)
{
    auto *object = static_cast<vel_unwind_object *>(context);
    const bool isprogram = object->visited++ == 0;
    for (size_t i = 0; i < info->dlpi_phnum; i++) {
        const ElfW(Phdr) *segment = &info->dlpi_phdr[i];
        const uintptr_t address = object->ip - info->dlpi_addr;
        if (segment->p_type != PT_LOAD || address < segment->p_vaddr ||
            address - segment->p_vaddr >= segment->p_memsz)
            continue;
        object->base = info->dlpi_addr;
        object->filename = isprogram ? "/proc/self/exe" : info->dlpi_name;
        return 1;
    }
    return 0;
}

int vel_unwind_get_proc_name(const vel_unwind_cursor *cursor, char *buffer, size_t size,
                             uintptr_t *offsetptr)
{
    buffer[0] = '\0';
    *offsetptr = 0;

    /* The address of a call's return may lie behind the last byte of its function. */
    vel_unwind_object object = {vel_unwind_get_ip(cursor) - 1, 0, nullptr, 0};
    if (dl_iterate_phdr(vel_unwind_visit, &object) == 0)
        return -1;
    const vel_unwind_symbol wanted = {object.ip - object.base, buffer, size, offsetptr};
    return vel_unwind_search_file(object.filename, &wanted);
}

uintptr_t vel_unwind_get_ip(const vel_unwind_cursor *cursor)
{
    return cursor->context->frames[cursor->frame].ip;
}

uintptr_t vel_unwind_get_sp(const vel_unwind_cursor *cursor)
{
    return cursor->context->frames[cursor->frame].sp;
}
