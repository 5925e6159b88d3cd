#include <cstddef>
#include <cstring>

#include <vellib/velfile.h>
#include <vellib/velgetopt.h>

#include "util/velassert.h"
#include "util/velgetopt_internal.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velgetopt"

/* Where descriptions stand. */
static constexpr int vel_getopt_startcolumn = 30;
static constexpr int vel_getopt_maxwidth = 79;

/* How much of the text a line of at most left characters takes. Only that many are looked at: where
 * there is a blank among them, text that would just fit is cut there too. */
static size_t vel_getopt_find_cut(const char *text, size_t left)
{
    size_t cut = left;
    for (size_t i = 0; i < left; i++) {
        if (text[i] == '\0')
            return i;
        if (text[i] == ' ')
            cut = i;
    }
    return cut;
}

void vel_getopt_show_description(FILE *out, const char *description, int currentcolumn,
                                 int startcolumn, int maxwidth)
{
    VEL_ASSERT(out != NULL);
    VEL_ASSERT(description != NULL);
    VEL_ASSERT(currentcolumn >= 0);
    VEL_ASSERT(startcolumn < maxwidth);
    VEL_ASSERT(maxwidth > 0);

    if (currentcolumn >= startcolumn) {
        (void)vel_file_fprintf(out, "\n");
        currentcolumn = 0;
    }
    for (;;) {
        (void)vel_file_fprintf(out, "%*s", startcolumn - currentcolumn, "");
        const int left = maxwidth - startcolumn;
        VEL_ASSERT(left > 0);
        const size_t cut = vel_getopt_find_cut(description, static_cast<size_t>(left));
        (void)vel_file_fprintf(out, "%.*s\n", static_cast<int>(cut), description);
        description += cut;
        if (*description == '\0')
            return;
        if (*description == ' ')
            description++;
        currentcolumn = 0;
    }
}

/* Prints the names of an option. Returns their width, or a negative number on a failure. */
static int vel_getopt_show_names(FILE *out, const velgetoptoption *option)
{
    const char *longopt = option->longopt;
    if (option->shortopt)
        return vel_file_fprintf(out, " -%c%s%s", option->shortopt, longopt ? ", --" : "",
                                longopt ? longopt : "");
    VEL_ASSERT(longopt != NULL);
    return vel_file_fprintf(out, " --%s", longopt);
}

static bool vel_getopt_show_option(FILE *out, const velgetoptoption *option)
{
    int width = vel_getopt_show_names(out, option);
    if (width < 0)
        return false;
    if (option->optionname) {
        const int namewidth = vel_file_fprintf(out, "=%s", option->optionname);
        if (namewidth < 0)
            return false;
        width += namewidth;
    }
    vel_getopt_show_description(out, option->description, width, vel_getopt_startcolumn,
                                vel_getopt_maxwidth);
    return true;
}

int vel_getopt_usage(velgetopt *velgetopt, FILE *out)
{
    VEL_ASSERT(velgetopt != NULL);
    VEL_ASSERT(out != NULL);

    (void)vel_file_fprintf(out, "%s\n",
                           velgetopt->synopsis ? velgetopt->synopsis : "usage: PROGRAM OPTIONS");
    (void)vel_file_fprintf(out, "OPTIONS:\n");
    for (auto *option = static_cast<velgetoptoption *>(velgetopt->options->head); option;
         option = option->next) {
        if (!vel_getopt_show_option(out, option)) {
            VEL_LOG(6, "unable to output usage");
            break;
        }
    }
    if (velgetopt->footer)
        (void)vel_file_fprintf(out, "%s", velgetopt->footer);
    return 0;
}

int vel_getopt_usage_stdout(velgetopt *velgetopt)
{
    VEL_ASSERT(velgetopt != NULL);

    return vel_getopt_usage(velgetopt, vel_file_get_stdout());
}

int vel_getopt_usage_stderr(velgetopt *velgetopt)
{
    VEL_ASSERT(velgetopt != NULL);

    return vel_getopt_usage(velgetopt, vel_file_get_stderr());
}
