#define _XOPEN_SOURCE 700

#include "common.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

enum { TEXT_WIDTH = 79 };

static const char *program_name = "";
static vellocalization *catalogues; /* NULL: none are found */
static vellanguage *language;       /* NULL: English */
static const char *refusal;         /* why a value is refused; NULL: the code tells */
static int mistaken;                /* whether the user was told of a mistake */

/* ---- the language ---------------------------------------------------------------------------- */

/* The directory of the program with something behind it, or NULL. */
static char *beside_program(const char *suffix)
{
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof(path));

    while (length > 0 && path[length - 1] != '/')
        length--;
    return length > 0 && (size_t)length < sizeof(path)
               ? vel_strdupf("%.*s%s", (int)length, path, suffix)
               : NULL;
}

/* Loads the catalogues from a directory that has them. */
static int load_from(const char *directory)
{
    char *domain = directory ? vel_strdupf("%s/vellib-tools", directory) : NULL;
    int isthere = domain && vel_file_exists(domain) == 1;

    vel_free(domain);
    if (isthere && (catalogues = vel_localization_create()) != NULL)
        (void)vel_localization_load_utf8(catalogues, directory, "vellib-tools");
    return isthere;
}

/* A program stands in the directory bin of a prefix, or in a build tree. */
static void load_catalogues(void)
{
    static const char *const places[] = {"locale", "../share/vellib/locale"};
    const char *named = getenv("VELLIB_LOCALE");
    int isthere = 0;

    if (named && *named) {
        (void)load_from(named);
        return;
    }
    for (size_t i = 0; i < sizeof(places) / sizeof(places[0]) && !isthere; i++) {
        char *directory = beside_program(places[i]);
        isthere = load_from(directory);
        vel_free(directory);
    }
    if (!isthere && !load_from("/usr/local/share/vellib/locale"))
        (void)load_from("/usr/share/vellib/locale");
}

/* The locale that POSIX has for messages: LC_ALL, or else LC_MESSAGES, or else LANG. */
static const char *locale_name(void)
{
    static const char *const names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};

    for (size_t i = 0; i < sizeof(names) / sizeof(names[0]); i++) {
        const char *value = getenv(names[i]);
        if (value && *value)
            return value;
    }
    return "";
}

/* Picks "de" for "de_DE.UTF-8". All catalogues are in UTF-8, and no other encoding is spoken. */
static void pick_language(const char *locale)
{
    const char *codeset = strchr(locale, '.');
    char name[64];

    if (codeset && vel_strncasecmp(codeset, ".utf-8", 6) != 0 &&
        vel_strncasecmp(codeset, ".utf8", 5) != 0)
        return;
    vel_snprintf(name, sizeof(name), "%.*s", (int)strcspn(locale, ".@"), locale);
    language = vel_localization_language_get(catalogues, name);
    if (!language) {
        name[strcspn(name, "_")] = '\0';
        language = vel_localization_language_get(catalogues, name);
    }
}

/* Opens a closed one the wrong way round: what is next opened gets another number, and whoever reads
 * or prints still fails. */
static void fill_standard_descriptors(void)
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; descriptor++)
        if (fcntl(descriptor, F_GETFD) < 0)
            (void)open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void common_start(const char *program)
{
    const char *locale = locale_name();

    fill_standard_descriptors();
    signal(SIGXFSZ, SIG_IGN); /* a file that may not grow is an error of its write, not our end */
    program_name = program;
    if (*locale && strcmp(locale, "C") != 0 && strcmp(locale, "POSIX") != 0)
        load_catalogues();
    if (catalogues)
        pick_language(locale);
}

void common_end(void)
{
    if (catalogues)
        vel_localization_destroy(catalogues);
    catalogues = NULL;
    language = NULL;
}

const char *tr(const char *text)
{
    const char *translation = *text ? vel_localization_localize(language, text) : NULL;

    return translation && *translation ? translation : text;
}

/* ---- errors ---------------------------------------------------------------------------------- */

int common_fail_list(int code, const char *format, va_list arguments)
{
    char text[2000];

    vsnprintf(text, sizeof(text), format, arguments);
    for (char *byte = text; *byte; byte++)
        *byte = (unsigned char)*byte < ' ' || *byte == 127 ? '?' : *byte;
    fprintf(stderr, "%s: %s\n", program_name, text);
    return code;
}

int common_fail(int code, const char *format, ...)
{
    va_list arguments;

    va_start(arguments, format);
    common_fail_list(code, format, arguments);
    va_end(arguments);
    return code;
}

int common_mistake(const char *format, ...)
{
    va_list arguments;

    va_start(arguments, format);
    common_fail_list(0, format, arguments);
    va_end(arguments);
    fprintf(stderr, tr("Try '%s --help'."), program_name);
    fputc('\n', stderr);
    mistaken = 1;
    return COMMON_MISTAKE;
}

vel_error_t common_refuse(const char *reason)
{
    refusal = reason;
    return VEL_ERROR_INVALID_ARGUMENT;
}

static void on_mistake(vel_error_t code, const char *option, const char *argument, void *context)
{
    (void)context;
    if (code == VEL_ERROR_NO_MEMORY)
        return; /* which is nobody's mistake */
    if (code == VEL_ERROR_NOT_FOUND)
        common_mistake(tr("%s: there is no such option"), option);
    else if (!argument)
        common_mistake(tr("%s: the option needs a value"), option);
    else if (refusal)
        common_mistake("%s: %s: %s", option, refusal, common_name(argument));
    else if (code == VEL_ERROR_OUT_OF_RANGE)
        common_mistake(tr("%s: the number is too large or too small: %s"), option, argument);
    else
        common_mistake(tr("%s: not a number: %s"), option, common_name(argument));
    refusal = NULL;
}

int common_parse_seconds(const char *text, double least, double *secondsptr)
{
    char *end = NULL;

    *secondsptr = strtod(text, &end);
    return end != text && !*end && *secondsptr >= least && *secondsptr < 1e9;
}

/* ---- the command line ------------------------------------------------------------------------ */

/* The length of a word in bytes, and how many characters these are. */
static size_t measure_word(const char *word, size_t *columns)
{
    size_t length = strcspn(word, " ");

    *columns = 0;
    for (size_t i = 0; i < length; i++)
        *columns += ((unsigned char)word[i] & 0xC0) != 0x80;
    return length;
}

static void put_paragraph(FILE *out, const char *text)
{
    size_t column = 0;

    while (*text) {
        size_t columns, length = measure_word(text, &columns);
        if (column > 0 && column + 1 + columns > TEXT_WIDTH) {
            fputc('\n', out);
            column = 0;
        }
        column += columns + (column > 0);
        fprintf(out, column > columns ? " %.*s" : "%.*s", (int)length, text);
        text += length;
        text += strspn(text, " ");
    }
    fputc('\n', out);
}

/* A string for free() of the lines above the options, or NULL. */
static char *make_head(const char *const *synopsis, const char *summary)
{
    char *text = NULL;
    size_t size;
    FILE *out = open_memstream(&text, &size);

    if (!out)
        return NULL;
    const char *word = tr("usage:");
    size_t columns;
    (void)measure_word(word, &columns);
    for (size_t i = 0; synopsis[i]; i++)
        fprintf(out, "%*s%s %s\n", i == 0 ? 0 : (int)columns, "", i == 0 ? word : "",
                tr(synopsis[i]));
    fputc('\n', out);
    put_paragraph(out, tr(summary));
    return fclose(out) == 0 ? text : NULL;
}

/* A string for free() of the paragraphs below the options, or NULL. */
static char *make_foot(const char *const *paragraphs)
{
    char *text = NULL;
    size_t size;
    FILE *out = open_memstream(&text, &size);

    if (!out)
        return NULL;
    for (; *paragraphs; paragraphs++) {
        fputc('\n', out);
        put_paragraph(out, tr(*paragraphs));
    }
    return fclose(out) == 0 ? text : NULL;
}

/* The usage text comes with an English heading, which is exchanged. Returns whether there was memory
 * for it. */
static int print_usage(velgetopt *options)
{
    static const char heading[] = "\nOPTIONS:\n";
    char *text = NULL;
    size_t size;
    FILE *out = open_memstream(&text, &size);

    if (!out)
        return 0;
    (void)vel_getopt_usage(options, out);
    int iscomplete = fclose(out) == 0;
    if (iscomplete) {
        const char *found = strstr(text, heading);
        size_t length = found ? (size_t)(found - text) : size;
        printf("%.*s\n%s\n%s", (int)length, text, tr("OPTIONS:"),
               found ? found + strlen(heading) : "");
    }
    free(text);
    return iscomplete;
}

/* Answers --help, or else --version. */
static int print_about(velgetopt *options, int help)
{
    if (!help)
        printf("%s 1.0.0\n", program_name);
    else if (!print_usage(options))
        return COMMON_NO_MEMORY;
    const char *reason = common_flush();
    return reason ? common_fail(COMMON_UNWRITTEN, tr("standard output: %s"), reason) : COMMON_DONE;
}

/* --help is a flag as well: the one of the library has a description in English. */
static int declare_common(velgetopt *options, const char *const *synopsis,
                          const char *const *paragraphs, int *help, int *version)
{
    char *head = make_head(synopsis, paragraphs[0]);
    char *foot = make_foot(paragraphs + 1);
    int bad = !head || !foot || vel_getopt_set_synopsis(options, head) ||
              vel_getopt_set_footer(options, foot) ||
              vel_getopt_flag_set(options, "help", 'h', help, tr("Show this text.")) ||
              vel_getopt_flag_set(options, "version", 0, version, tr("Show the version."));

    free(head);
    free(foot);
    return bad;
}

int common_parse(velgetopt *options, int bad, const char *const *synopsis,
                 const char *const *paragraphs, int argc, char **argv)
{
    int help = 0, version = 0, result = COMMON_NO_MEMORY;

    mistaken = 0;
    refusal = NULL;
    if (options && !bad && !declare_common(options, synopsis, paragraphs, &help, &version)) {
        vel_getopt_set_error_callback(options, on_mistake, NULL);
        if (vel_getopt_parse(options, argc, argv) == 0)
            result = vel_getopt_optind(options);
        else if (mistaken)
            result = COMMON_MISTAKE;
    }
    if (result >= 0 && (help || version))
        result = print_about(options, help);
    if (result == COMMON_NO_MEMORY)
        common_fail_memory(0);
    if (options)
        vel_getopt_destroy(options);
    return result;
}

int common_exit_code(int parsed, int usage, int unwritten, int memory)
{
    switch (parsed) {
    case COMMON_DONE:
        return 0;
    case COMMON_MISTAKE:
        return usage;
    case COMMON_UNWRITTEN:
        return unwritten;
    default:
        return memory;
    }
}

/* ---- what the library says ------------------------------------------------------------------- */

int common_keep_reason(const char *string, size_t length, int level, time_t when, void *context)
{
    struct common_reason *reason = context;

    (void)level;
    (void)when;
    if (!reason->text[0])
        snprintf(reason->text, sizeof(reason->text), "%.*s", (int)length, string);
    return 0;
}

int common_fail_memory(int code)
{
    return common_fail(code, "%s", tr(vel_error_string(VEL_ERROR_NO_MEMORY)));
}

/* ---- files, signals, the terminal ------------------------------------------------------------ */

const char *common_flush(void)
{
    if (fflush(stdout) != 0)
        return tr(strerror(errno));
    /* The reason of a failure before this one is gone. */
    return ferror(stdout) ? tr(vel_error_string(VEL_ERROR_WRITE)) : NULL;
}

const char *common_name(const char *name)
{
    return *name ? name : "''";
}

char *common_read(FILE *stream, size_t *sizeptr)
{
    size_t room = 65536, size = 0, count;
    char *data = vel_malloc(room);

    while (data && (count = vel_file_read(stream, data + size, room - size - 1)) > 0) {
        size += count;
        if (room - size > 1)
            continue;
        char *grown = vel_realloc(data, room *= 2);
        if (!grown)
            vel_free(data);
        data = grown;
    }
    if (!data) {
        errno = ENOMEM;
        return NULL;
    }
    if (vel_file_ferror(stream)) {
        vel_free(data);
        return NULL;
    }
    data[size] = '\0';
    if (sizeptr)
        *sizeptr = size;
    return data;
}

void common_wake(int velsignal, void *context)
{
    int saved = errno;
    ssize_t ignored = write(*(int *)context, "", 1);
    (void)ignored;
    (void)velsignal;
    errno = saved;
}

void common_catch_signals(vel_signal_cb *callback, void *context)
{
    vel_signal_register_sigint(callback, context);
    vel_signal_register_sigterm(callback, context);
}

void common_format_amount(char *text, size_t size, double bytes)
{
    static const char *const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;

    for (; bytes >= 1023.5 && unit < 4; unit++)
        bytes /= 1024;
    snprintf(text, size, unit == 0 || bytes >= 9.95 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
}

int common_terminal_width(void)
{
    struct winsize size;
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void common_show_line(const char *text)
{
    int width = common_terminal_width() - 1;
    fprintf(stderr, "\r%-*.*s", width, width, text);
}
