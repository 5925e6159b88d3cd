#include <vellib/velgetopt.h>

#include <cstddef>

#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "util/velassert.h"
#include "util/velgetopt_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velgetopt"

/* ---- Options ---- */

static void vel_getopt_option_destroy(velgetoptoption *option)
{
    VEL_ASSERT(option != NULL);

    if (option->longopt)
        vel_free(option->longopt);
    if (option->optionname)
        vel_free(option->optionname);
    if (option->description)
        vel_free(option->description);
    vel_free(option);
}

static bool vel_getopt_option_build(velgetoptoption *option, const char *longopt,
                                    const char *optionname, const char *description)
{
    if (longopt) {
        option->longopt = vel_strdup(longopt);
        if (!option->longopt) {
            VEL_LOG(7, "not enough memory for long option '%s'", longopt);
            return false;
        }
    }
    if (optionname) {
        option->optionname = vel_strdup(optionname);
        if (!option->optionname) {
            VEL_LOG(7, "not enough memory for option name");
            return false;
        }
    }
    option->description = vel_strdup(description);
    if (!option->description) {
        VEL_LOG(7, "not enough memory for option description");
        return false;
    }
    return true;
}

int vel_getopt_option_add(velgetopt *velgetopt, int optiontype, const char *longopt, int shortopt,
                          const char *optionname, const char *description,
                          vel_getopt_string_cb *callback, vel_getopt_data data)
{
    VEL_ASSERT(velgetopt != NULL);
    VEL_ASSERT(optiontype > VEL_GETOPT_TYPE_NONE);
    VEL_ASSERT(optiontype < VEL_GETOPT_TYPE_COUNT);
    VEL_ASSERT(description != NULL);

    auto *option = static_cast<velgetoptoption *>(vel_cmalloc(sizeof(velgetoptoption)));
    if (!option) {
        VEL_LOG(7, "not enough memory for velgetopt option");
        return -1;
    }
    if (!vel_getopt_option_build(option, longopt, optionname, description)) {
        vel_getopt_option_destroy(option);
        return -1;
    }
    option->optiontype = optiontype;
    option->shortopt = shortopt;
    option->callback = callback;
    option->data = data;
    VEL_LIST_ADD_TAIL(velgetopt->options, option);
    return 0;
}

/* ---- Life ---- */

velgetopt *vel_getopt_create(void)
{
    auto *velgetopt = static_cast<struct velgetopt *>(vel_cmalloc(sizeof(struct velgetopt)));
    if (!velgetopt) {
        VEL_LOG(7, "not enough memory for velgetopt context");
        return nullptr;
    }
    velgetopt->options = vel_list_create();
    if (!velgetopt->options) {
        VEL_LOG(7, "unable to create velgetopt option list");
        vel_getopt_destroy(velgetopt);
        return nullptr;
    }
    return velgetopt;
}

void vel_getopt_destroy(velgetopt *velgetopt)
{
    VEL_ASSERT(velgetopt != NULL);

    if (velgetopt->options) {
        while (auto *option = static_cast<velgetoptoption *>(velgetopt->options->head)) {
            VEL_LIST_REMOVE(velgetopt->options, option);
            vel_getopt_option_destroy(option);
        }
        vel_list_destroy(velgetopt->options);
    }
    if (velgetopt->footer)
        vel_free(velgetopt->footer);
    if (velgetopt->synopsis)
        vel_free(velgetopt->synopsis);
    vel_free(velgetopt);
}

/* ---- What is set ---- */

/* Puts a copy of text, or NULL, in the place of what a field has. */
static int vel_getopt_set_text(char **field, const char *text, const char *what)
{
    char *copy = nullptr;
    if (text) {
        copy = vel_strdup(text);
        if (!copy) {
            VEL_LOG(7, "not enough memory for %s string", what);
            return -1;
        }
    }
    if (*field)
        vel_free(*field);
    *field = copy;
    return 0;
}

int vel_getopt_set_synopsis(velgetopt *velgetopt, const char *synopsis)
{
    return vel_getopt_set_text(&velgetopt->synopsis, synopsis, "synopsis");
}

int vel_getopt_set_footer(velgetopt *velgetopt, const char *footer)
{
    return vel_getopt_set_text(&velgetopt->footer, footer, "footer");
}

int vel_getopt_const_string(velgetopt *velgetopt, const char *longopt, int shortopt,
                            const char **stringptr, const char *optionname, const char *description)
{
    VEL_ASSERT(velgetopt != NULL);
    VEL_ASSERT(stringptr != NULL);
    VEL_ASSERT(optionname != NULL);
    VEL_ASSERT(description != NULL);

    return vel_getopt_option_add(velgetopt, VEL_GETOPT_TYPE_CONST_STRING, longopt, shortopt,
                                 optionname, description, nullptr, {.conststringptr = stringptr});
}

int vel_getopt_int(velgetopt *velgetopt, const char *longopt, int shortopt, int *intptr,
                   const char *optionname, const char *description)
{
    VEL_ASSERT(velgetopt != NULL);
    VEL_ASSERT(intptr != NULL);
    VEL_ASSERT(optionname != NULL);
    VEL_ASSERT(description != NULL);

    return vel_getopt_option_add(velgetopt, VEL_GETOPT_TYPE_INT, longopt, shortopt, optionname,
                                 description, nullptr, {.intptr = intptr});
}

int vel_getopt_flag_set(velgetopt *velgetopt, const char *longopt, int shortopt, int *intptr,
                        const char *description)
{
    VEL_ASSERT(velgetopt != NULL);
    VEL_ASSERT(intptr != NULL);
    VEL_ASSERT(description != NULL);

    return vel_getopt_option_add(velgetopt, VEL_GETOPT_TYPE_FLAG_SET, longopt, shortopt, nullptr,
                                 description, nullptr, {.intptr = intptr});
}

int vel_getopt_string_callback(velgetopt *velgetopt, const char *longopt, int shortopt,
                               const char *optionname, const char *description,
                               vel_getopt_string_cb *callback, void *context)
{
    VEL_ASSERT(velgetopt != NULL);
    VEL_ASSERT(optionname != NULL);
    VEL_ASSERT(description != NULL);

    return vel_getopt_option_add(velgetopt, VEL_GETOPT_TYPE_STRING_CALLBACK, longopt, shortopt,
                                 optionname, description, callback, {.context = context});
}

int vel_getopt_help(velgetopt *velgetopt, const char *longopt, int shortopt)
{
    VEL_ASSERT(velgetopt != NULL);

    return vel_getopt_option_add(velgetopt, VEL_GETOPT_TYPE_HELP, longopt, shortopt, nullptr,
                                 "Show help.", nullptr, {.context = nullptr});
}

void vel_getopt_set_error_callback(velgetopt *velgetopt, vel_getopt_error_cb *callback,
                                   void *context)
{
    VEL_ASSERT(velgetopt != NULL);

    velgetopt->error_callback = callback;
    velgetopt->error_context = context;
}

int vel_getopt_optind(velgetopt *velgetopt)
{
    return velgetopt->optind;
}
