#include <vellib/velsetenv.h>

#include <stdlib.h>

#include "util/velassert.h"

int vel_setenv(const char *name, const char *value, int overwrite)
{
    VEL_ASSERT(name != NULL);
    VEL_ASSERT(value != NULL);

    return setenv(name, value, overwrite);
}

int vel_unsetenv(const char *name)
{
    VEL_ASSERT(name != NULL);

    return unsetenv(name);
}
