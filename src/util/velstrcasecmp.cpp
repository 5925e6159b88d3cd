#include <vellib/velstrcasecmp.h>

#include "util/velassert.h"
#include "util/velstrcasecmp_internal.h"

int vel_strcasecmp(const char *s1, const char *s2)
{
    VEL_ASSERT(s1 != NULL);
    VEL_ASSERT(s2 != NULL);

    for (;; s1++, s2++) {
        const char c1 = *s1;
        const char c2 = *s2;
        const int result = vel_strcasecmp_lower(c1) - vel_strcasecmp_lower(c2);
        if (result != 0)
            return result;
        if (c1 == '\0') {
            VEL_ASSERT(c2 == '\0');
            VEL_ASSERT(result == 0);
            return result;
        }
    }
}
