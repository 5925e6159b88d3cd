#ifndef VELLIB_UTIL_VELGETOPT_INTERNAL_H
#define VELLIB_UTIL_VELGETOPT_INTERNAL_H

/* What the sources of util/velgetopt share. All of them log as util/velgetopt. */

#include <vellib/velgetopt.h>
#include <vellib/vellist.h>

enum vel_getopt_type : int {
    VEL_GETOPT_TYPE_NONE = 0,
    VEL_GETOPT_TYPE_HELP = 1,
    VEL_GETOPT_TYPE_CONST_STRING = 2,
    VEL_GETOPT_TYPE_INT = 3,
    VEL_GETOPT_TYPE_FLAG_SET = 4,
    VEL_GETOPT_TYPE_STRING_CALLBACK = 5,
    VEL_GETOPT_TYPE_COUNT = 6,
};

/* Where the value of an option goes. */
union vel_getopt_data {
    void *context; /* of the callback */
    const char **conststringptr;
    int *intptr;
};

struct velgetoptoption {
    velgetoptoption *next; /* first two fields: the link of a vel_list */
    velgetoptoption *prev;
    int optiontype;    /* an enum vel_getopt_type */
    int shortopt;      /* a character; 0 for none */
    char *longopt;     /* owned, without dashes; may be NULL */
    char *optionname;  /* owned; NULL if the option takes no value */
    char *description; /* owned */
    vel_getopt_string_cb *callback;
    vel_getopt_data data;
};

struct velgetopt {
    char *synopsis;    /* owned, or NULL */
    char *footer;      /* owned, or NULL */
    vel_list *options; /* of velgetoptoption, in order of declaration */
    int optind;
    vel_getopt_error_cb *error_callback; /* or NULL */
    void *error_context;
    int helpshown; /* 1 if the parse has met a help option */
};

/* Adds an option to the end of the list. Strings are copied. Returns 0, or -1 with the list as it
 * was, and logs why. */
int vel_getopt_option_add(velgetopt *velgetopt, int optiontype, const char *longopt, int shortopt,
                          const char *optionname, const char *description,
                          vel_getopt_string_cb *callback, vel_getopt_data data);

/* Does what an option is there for. optiontext is for messages; value is what the option may take,
 * or NULL. Returns -1 for a failure, 0 if the value was not used, 1 if it was. */
int vel_getopt_option_process(velgetopt *velgetopt, velgetoptoption *option, const char *optiontext,
                              const char *value);

/* Prints a description in lines from startcolumn to maxwidth, and ends the last one. */
void vel_getopt_show_description(FILE *out, const char *description, int currentcolumn,
                                 int startcolumn, int maxwidth);

#endif
