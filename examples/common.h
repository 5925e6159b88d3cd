/* common: what the example programs share: the language of their messages, the options that all of
 * them have, and the form of their errors. */
#ifndef EXAMPLES_COMMON_H
#define EXAMPLES_COMMON_H

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <time.h>

#include <vellib/vellib.h>

#ifdef __GNUC__
#define COMMON_FORMAT(text)       __attribute__((format_arg(text)))
#define COMMON_PRINTF(text, rest) __attribute__((format(printf, text, rest)))
#else
#define COMMON_FORMAT(text)
#define COMMON_PRINTF(text, rest)
#endif

/* Marks a text that tr() meets only at run time, for those who gather what is to be translated. No
 * text has a line end: a catalogue that the library reads cannot hold one. */
#define N_(text) text

/* What common_parse gives where there are no operands to go on with. */
enum { COMMON_DONE = 0, COMMON_MISTAKE = -1, COMMON_NO_MEMORY = -2, COMMON_UNWRITTEN = -3 };

/* Reads a number of seconds such as 2.5. Returns whether it is one. */
int common_parse_seconds(const char *text, double least, double *secondsptr);

/* Begins a program: loads the messages of its user's language, and sees to it that no file or socket
 * becomes standard input or output because that was closed. What is printed of errors begins with the
 * name. */
void common_start(const char *program);
void common_end(void);

/* The text in the language of the user, or as it is. Valid until common_end. */
const char *tr(const char *text) COMMON_FORMAT(1);

/* Prints one line to standard error, in which nothing steers the terminal. Returns the code. */
int common_fail(int code, const char *format, ...) COMMON_PRINTF(2, 3);

int common_fail_list(int code, const char *format, va_list arguments) COMMON_PRINTF(2, 0);

/* The same for a lack of memory. */
int common_fail_memory(int code);

/* The same line as a failed option gets, for operands that are wrong. Returns COMMON_MISTAKE. */
int common_mistake(const char *format, ...) COMMON_PRINTF(1, 2);

/* For a callback of an option: keeps why a value is refused, in words that the value follows. */
vel_error_t common_refuse(const char *reason);

/* Parses the command line, with --help and --version beside what is declared, and destroys the
 * options.
 *
 * options    NULL, or bad not 0, stands for a declaration that failed.
 * synopsis   what follows "usage: ", NULL ends the list of lines.
 * paragraphs the first stands above the options, the others below; NULL ends them. Not translated.
 *
 * Returns the index of the first operand, or one of the codes above, with all said. */
int common_parse(velgetopt *options, int bad, const char *const *synopsis,
                 const char *const *paragraphs, int argc, char **argv);

/* The exit code where common_parse gave none of the operands: 0, or one of these. */
int common_exit_code(int parsed, int usage, int unwritten, int memory);

/* The first line in which the library said what is wrong; empty for none so far. */
struct common_reason {
    char text[1000];
};

/* A callback of the log that keeps that line in its context; those behind it only say where it came
 * up. */
int common_keep_reason(const char *string, size_t length, int level, time_t when, void *context);

/* Flushes standard output. Returns NULL if all that was printed is out, or why it is not. */
const char *common_flush(void);

/* A name as it is shown in a message: quotes stand for one that is empty. */
const char *common_name(const char *name);

/* Reads a stream to its end; *sizeptr receives the size, NULL not to learn it. Returns the data, with
 * a NUL behind it, to vel_free, or NULL with errno set. */
char *common_read(FILE *stream, size_t *sizeptr);

/* A callback of signals that writes a byte to the descriptor that its context points to. */
void common_wake(int velsignal, void *context);

/* Lets the signals that ask for an end go to a callback; NULL to let them end the program again. */
void common_catch_signals(vel_signal_cb *callback, void *context);

/* Writes a number of bytes in at most 8 characters, such as "9.5 KiB". */
void common_format_amount(char *text, size_t size, double bytes);

int common_terminal_width(void);

/* Overwrites the last line of the terminal. */
void common_show_line(const char *text);

#endif
