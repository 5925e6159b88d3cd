#ifndef VELLIB_VELGETOPT_H
#define VELLIB_VELGETOPT_H

#include <stdio.h>

#include <vellib/velapi.h>
#include <vellib/velerror.h>

/* velgetopt: the options of a command line. A program declares each option with the place where its
 * value goes, and has no loop of its own:
 *
 *     vel_getopt_int(velgetopt, "port", 'p', &port, "NUMBER", "Port to listen on.");
 *     vel_getopt_flag_set(velgetopt, "quiet", 'q', &quiet, "Say nothing.");
 *     vel_getopt_help(velgetopt, "help", 'h');
 *     result = vel_getopt_parse(velgetopt, argc, argv);
 *
 * An option is written "-p 80", "--port 80" or "--port=80"; "-qp 80" is "-q -p 80". A value is
 * always a whole argument or what follows the "=", so "-p80" is none. Options end at the first
 * argument that does not begin with "-", and at "--", which is consumed; "-" alone is passed over.
 * Names are not checked: of options with the same name the one declared first is found.
 * Threads: one at a time. */
typedef struct velgetopt velgetopt;

/* Takes the value of an option.
 *
 * argument  the value, as it stands in the arguments of the program.
 * context   what was given to vel_getopt_string_callback.
 *
 * Returns VEL_ERROR_NONE, or a code, which ends the parse and goes to the error callback. */
typedef vel_error_t vel_getopt_string_cb(const char *argument, void *context);

/* Learns what the user did wrong. Nothing else tells: the parser prints nothing.
 *
 * code      VEL_ERROR_NOT_FOUND: there is no such option; VEL_ERROR_INVALID_SYNTAX: its value is
 *           missing; VEL_ERROR_INVALID_ARGUMENT: its value is no number; VEL_ERROR_OUT_OF_RANGE:
 *           the number does not fit in an int; or what a callback of an option returned.
 * option    the option with its dashes, without "=" and what follows it. Valid during the call.
 * argument  its value, or NULL if there is no such option or no value.
 * context   what was given to vel_getopt_set_error_callback. */
typedef void vel_getopt_error_cb(vel_error_t code, const char *option, const char *argument,
                                 void *context);

VEL_DECLARATIONS_BEGIN

/* Creates a set of no options.
 *
 * Returns it, for vel_getopt_destroy, or NULL if there is not enough memory, which is logged. */
VEL_API velgetopt *vel_getopt_create(void);

/* Destroys the set. Values that were stored stay good. */
VEL_API void vel_getopt_destroy(velgetopt *velgetopt);

/* Sets the first line of the usage text, which is "usage: PROGRAM OPTIONS" otherwise.
 *
 * synopsis  is copied, and needs no line feed; NULL takes back what was set.
 *
 * Returns 0, or -1 with nothing changed if there is not enough memory, which is logged. */
VEL_API int vel_getopt_set_synopsis(velgetopt *velgetopt, const char *synopsis);

/* Sets what ends the usage text.
 *
 * footer  is copied, and printed as it is: it ends in a line feed of its own. NULL takes back what
 *         was set.
 *
 * Returns 0, or -1 with nothing changed if there is not enough memory, which is logged. */
VEL_API int vel_getopt_set_footer(velgetopt *velgetopt, const char *footer);

/* Declares an option with a string for its value.
 *
 * longopt      its long name, without dashes; may be NULL.
 * shortopt     its short name, a character; 0 for none.
 * stringptr    where a parse stores a pointer to the value, which is the argument itself and lives
 *              as long. Untouched if the option is not given.
 * optionname   the word for the value in the usage text.
 * description  the help text.
 *
 * Returns 0, or -1 with nothing changed if there is not enough memory, which is logged.
 * Note: an option that has neither name cannot be given, and the usage text aborts at it. */
VEL_API int vel_getopt_const_string(velgetopt *velgetopt, const char *longopt, int shortopt,
                                    const char **stringptr, const char *optionname,
                                    const char *description);

/* Declares an option with a decimal number for its value, which must fit in 32 bits.
 *
 * intptr  where a parse stores the number. Untouched if the option is not given.
 *
 * Other arguments and results are as for vel_getopt_const_string. */
VEL_API int vel_getopt_int(velgetopt *velgetopt, const char *longopt, int shortopt, int *intptr,
                           const char *optionname, const char *description);

/* Declares an option without a value. One that is given all the same, with "=", is ignored.
 *
 * intptr  where a parse stores 1. Untouched if the option is not given.
 *
 * Other arguments and results are as for vel_getopt_const_string. */
VEL_API int vel_getopt_flag_set(velgetopt *velgetopt, const char *longopt, int shortopt,
                                int *intptr, const char *description);

/* Declares an option whose value goes to a callback, each time that the option is given.
 *
 * callback  may not be NULL either, but aborts only in a parse that meets the option.
 * context   handed to the callback; may be NULL.
 *
 * Other arguments and results are as for vel_getopt_const_string. */
VEL_API int vel_getopt_string_callback(velgetopt *velgetopt, const char *longopt, int shortopt,
                                       const char *optionname, const char *description,
                                       vel_getopt_string_cb *callback, void *context);

/* Declares an option without a value that prints the usage text to the standard output. Its
 * description is "Show help."
 *
 * Arguments and results are as for vel_getopt_const_string. */
VEL_API int vel_getopt_help(velgetopt *velgetopt, const char *longopt, int shortopt);

/* Sets the callback that learns what the user did wrong.
 *
 * callback  NULL for none.
 * context   handed to the callback; may be NULL. */
VEL_API void vel_getopt_set_error_callback(velgetopt *velgetopt, vel_getopt_error_cb *callback,
                                           void *context);

/* Parses the arguments of a program. The first of them, its name, is passed over.
 *
 * argc  their number, not negative.
 * argv  they themselves; values that a parse stores point into them.
 *
 * Returns 0; 1 if help was asked for and shown; or -1 if the user made a mistake, which goes to the
 * error callback, or if there is not enough memory, which is logged.
 * Note: the parse does not end at a help option, so that -1 may come after the usage text.
 * Note: after a failure the values of the options in front of the mistake are stored. */
VEL_API int vel_getopt_parse(velgetopt *velgetopt, int argc, char **argv);

/* Gives the index of the first argument that the last parse did not consume, which is argc if it
 * consumed all and 1 if there was none.
 *
 * Returns 0 after a parse that failed, and before any. */
VEL_API int vel_getopt_optind(velgetopt *velgetopt);

/* Prints the usage text: the synopsis, the options in the order of their declaration, with their
 * descriptions wrapped from column 30 to 79, and the footer. Columns are counted in bytes.
 *
 * out  a stream for writing.
 *
 * Returns 0. An option that cannot be written is logged and ends the list.
 * Note: a line takes 49 bytes of a description, but ends at the last blank among them even where
 * what is left would just fit. */
VEL_API int vel_getopt_usage(velgetopt *velgetopt, FILE *out);

/* Prints the usage text to the standard output, as vel_getopt_usage does. */
VEL_API int vel_getopt_usage_stdout(velgetopt *velgetopt);

/* Prints the usage text to the standard error stream, as vel_getopt_usage does. */
VEL_API int vel_getopt_usage_stderr(velgetopt *velgetopt);

VEL_DECLARATIONS_END

#endif
