#ifndef VELLIB_UTIL_VELTEST_INTERNAL_H
#define VELLIB_UTIL_VELTEST_INTERNAL_H

/* What the sources of util/veltest share. All of them log as util/veltest. */

#include <time.h>

#include <vellib/vellist.h>
#include <vellib/veltest.h>
#include <vellib/veltimer.h>

struct veltest {
    char *name;          /* owned */
    vel_list *testcases; /* of veltestcase, in the order of adding */
    struct veltimer *veltimer;
    int xml;             /* 1 if --xml was given */
    const char *outfile; /* in argv, or NULL */
    int append;          /* 1 if --append was given */
    time_t starttime;
    int totalseconds; /* of the run */
    unsigned int totalmicroseconds;
};

struct veltestcase {
    veltestcase *next; /* first two fields: the link of a vel_list */
    veltestcase *prev;
    struct veltest *veltest;
    vel_test_function_cb *testfunction;
    void *context;
    int done; /* 1 once the function has run */
    unsigned int checks;
    unsigned int failures;     /* checks that failed */
    int seconds;               /* from the start of the run to the end of the case */
    unsigned int microseconds; /* of them */
};

/* What the summary counts. */
struct vel_test_counts {
    unsigned int cases;
    unsigned int failedcases;
    unsigned int checks;
    unsigned int failedchecks;
};

/* Writes the report, at the end of the file or as the whole of it. Returns 0 or -1. */
int vel_test_summary_xml(veltest *veltest, const char *filename, const vel_test_counts *counts);

#endif
