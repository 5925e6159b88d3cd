#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <vellib/velgetopt.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrndup.h>
#include <vellib/velstrtoi64.h>

#include "util/velassert.h"
#include "util/velgetopt_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velgetopt"

/* ---- What an option does ---- */

/* Tells the program what the user did wrong. Returns -1, which is then the result. */
static int vel_getopt_refuse(velgetopt *velgetopt, vel_error_t code, const char *optiontext,
                             const char *argument)
{
    if (velgetopt->error_callback)
        velgetopt->error_callback(code, optiontext, argument, velgetopt->error_context);
    return -1;
}

static int vel_getopt_refuse_missing(velgetopt *velgetopt, const char *optiontext, int level)
{
    VEL_LOG(level, "option '%s' requires an argument", optiontext);
    return vel_getopt_refuse(velgetopt, VEL_ERROR_INVALID_SYNTAX, optiontext, nullptr);
}

static int vel_getopt_process_int(velgetopt *velgetopt, velgetoptoption *option,
                                  const char *optiontext, const char *value)
{
    int64_t number;
    const vel_error_t error = vel_strtoi64(value, &number);
    if (error == VEL_ERROR_INVALID_SYNTAX || error == VEL_ERROR_INCOMPLETE)
        return vel_getopt_refuse(velgetopt, VEL_ERROR_INVALID_ARGUMENT, optiontext, value);
    if (error == VEL_ERROR_OUT_OF_RANGE ||
        (error == VEL_ERROR_NONE && (number < INT32_MIN || number > INT32_MAX)))
        return vel_getopt_refuse(velgetopt, VEL_ERROR_OUT_OF_RANGE, optiontext, value);
    if (error != VEL_ERROR_NONE) {
        VEL_LOG(6, "unexpected error %d (%s) from integer conversion", error,
                vel_error_string(error));
        return -1;
    }
    *option->data.intptr = static_cast<int>(number);
    return 1;
}

static int vel_getopt_process_callback(velgetopt *velgetopt, velgetoptoption *option,
                                       const char *optiontext, const char *value)
{
    const vel_error_t error = option->callback(value, option->data.context);
    if (error != VEL_ERROR_NONE)
        return vel_getopt_refuse(velgetopt, error, optiontext, value);
    return 1;
}

int vel_getopt_option_process(velgetopt *velgetopt, velgetoptoption *option, const char *optiontext,
                              const char *value)
{
    switch (option->optiontype) {
    case VEL_GETOPT_TYPE_HELP:
        velgetopt->helpshown = 1;
        (void)vel_getopt_usage_stdout(velgetopt);
        return 0;
    case VEL_GETOPT_TYPE_CONST_STRING:
        if (!value)
            return vel_getopt_refuse_missing(velgetopt, optiontext, 13);
        VEL_ASSERT(option->data.conststringptr != NULL);
        *option->data.conststringptr = value;
        return 1;
    case VEL_GETOPT_TYPE_INT:
        if (!value)
            return vel_getopt_refuse_missing(velgetopt, optiontext, 6);
        VEL_ASSERT(option->data.intptr != NULL);
        return vel_getopt_process_int(velgetopt, option, optiontext, value);
    case VEL_GETOPT_TYPE_FLAG_SET:
        VEL_ASSERT(option->data.intptr != NULL);
        *option->data.intptr = 1;
        return 0;
    case VEL_GETOPT_TYPE_STRING_CALLBACK:
        VEL_ASSERT(option->callback != NULL);
        if (!value)
            return vel_getopt_refuse_missing(velgetopt, optiontext, 13);
        return vel_getopt_process_callback(velgetopt, option, optiontext, value);
    default:
        VEL_LOG(6, "unrecognized option type %d", option->optiontype);
        return -1;
    }
}

/* ---- Arguments ---- */

static velgetoptoption *vel_getopt_find_short(velgetopt *velgetopt, int shortopt)
{
    auto *option = static_cast<velgetoptoption *>(velgetopt->options->head);
    while (option && option->shortopt != shortopt)
        option = option->next;
    return option;
}

static velgetoptoption *vel_getopt_find_long(velgetopt *velgetopt, const char *longopt)
{
    auto *option = static_cast<velgetoptoption *>(velgetopt->options->head);
    while (option && !(option->longopt && strcmp(option->longopt, longopt) == 0))
        option = option->next;
    return option;
}

/* The argument that an option at this point of the parse may take, or NULL. */
static inline const char *vel_getopt_candidate(int index, int argc, char **argv)
{
    return index < argc ? argv[index] : nullptr;
}

/* Takes what follows a single dash, each character of it an option. */
static bool vel_getopt_parse_cluster(velgetopt *velgetopt, const char *cluster, int *indexptr,
                                     int argc, char **argv)
{
    for (; *cluster; cluster++) {
        const char optiontext[] = {'-', *cluster, '\0'};
        velgetoptoption *option = vel_getopt_find_short(velgetopt, *cluster);
        if (!option) {
            (void)vel_getopt_refuse(velgetopt, VEL_ERROR_NOT_FOUND, optiontext, nullptr);
            return false;
        }
        const int used = vel_getopt_option_process(velgetopt, option, optiontext,
                                                   vel_getopt_candidate(*indexptr, argc, argv));
        if (used < 0)
            return false;
        *indexptr += used;
    }
    return true;
}

/* Finds and processes the long option of this text, which has its dashes and no "=". Returns what
 * vel_getopt_option_process returns. */
static int vel_getopt_parse_name(velgetopt *velgetopt, const char *optiontext, const char *value)
{
    velgetoptoption *option = vel_getopt_find_long(velgetopt, optiontext + strlen("--"));
    if (!option)
        return vel_getopt_refuse(velgetopt, VEL_ERROR_NOT_FOUND, optiontext, nullptr);
    return vel_getopt_option_process(velgetopt, option, optiontext, value);
}

static bool vel_getopt_parse_long(velgetopt *velgetopt, const char *argument, int *indexptr,
                                  int argc, char **argv)
{
    const char *equals = strchr(argument, '=');
    if (!equals) {
        const int used =
            vel_getopt_parse_name(velgetopt, argument, vel_getopt_candidate(*indexptr, argc, argv));
        if (used > 0)
            (*indexptr)++;
        return used >= 0;
    }

    char *optiontext = vel_strndup(argument, static_cast<size_t>(equals - argument));
    if (!optiontext) {
        VEL_LOG(7, "not enough memory for long option name");
        return false;
    }
    const int used = vel_getopt_parse_name(velgetopt, optiontext, equals + 1);
    vel_free(optiontext);
    return used >= 0;
}

/* Returns the index of the first argument that was not consumed, or 0 after a failure. */
static int vel_getopt_parse_arguments(velgetopt *velgetopt, int argc, char **argv)
{
    int index = 1;
    while (index < argc && argv[index][0] == '-') {
        const char *argument = argv[index++];
        bool good;
        if (argument[1] != '-')
            good = vel_getopt_parse_cluster(velgetopt, argument + 1, &index, argc, argv);
        else if (argument[2] == '\0')
            break;
        else
            good = vel_getopt_parse_long(velgetopt, argument, &index, argc, argv);
        if (!good)
            return 0;
    }
    return index;
}

int vel_getopt_parse(velgetopt *velgetopt, int argc, char **argv)
{
    VEL_ASSERT(velgetopt != NULL);
    VEL_ASSERT(argc >= 0);
    VEL_ASSERT(argv != NULL);

    velgetopt->helpshown = 0;
    velgetopt->optind = vel_getopt_parse_arguments(velgetopt, argc, argv);
    if (velgetopt->optind == 0)
        return -1;
    return velgetopt->helpshown ? 1 : 0;
}
