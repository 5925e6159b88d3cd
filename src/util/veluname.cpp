#include <vellib/veluname.h>

#include <errno.h>

#include <sys/utsname.h>

#include <vellib/velstrdup.h>
#include <vellib/velstrdupf.h>

#include "util/vellog_macros.h"

#define VEL_MODULE "util/veluname"

/* The four differ in what they log when the platform fails, one of them in that it logs nothing.
 * That is meant to stay. */

char *vel_uname_sysname(void)
{
    utsname names;
    if (uname(&names) < 0)
        return nullptr;
    char *sysname = vel_strdup(names.sysname);
    if (!sysname)
        VEL_LOG(7, "not enough memory for the operating system name");
    return sysname;
}

char *vel_uname_nodename(void)
{
    utsname names;
    if (uname(&names) < 0) {
        const int platformerrno = errno;
        VEL_LOG(7, "uname() failed, errno %d", platformerrno);
        return nullptr;
    }
    char *nodename = vel_strdup(names.nodename);
    if (!nodename)
        VEL_LOG(7, "not enough memory for the node name");
    return nodename;
}

char *vel_uname_version(void)
{
    utsname names;
    if (uname(&names) < 0) {
        VEL_LOG(7, "uname() returned an error");
        return nullptr;
    }
    char *version = vel_strdupf("%s %s", names.release, names.version);
    if (!version)
        VEL_LOG(7, "not enough memory for the operating system version");
    return version;
}

char *vel_uname_architecture(void)
{
    utsname names;
    if (uname(&names) < 0) {
        const int platformerrno = errno;
        VEL_LOG(6, "uname() failed, errno %d", platformerrno);
        return nullptr;
    }
    char *machine = vel_strdup(names.machine);
    if (!machine)
        VEL_LOG(7, "not enough memory for the machine architecture");
    return machine;
}
