#include <vellib/velstrcasecmp.h>

#include <cctype>

#include "util/velassert.h"

int vel_strcasecmp(const char *s1, const char *s2)
{
    VEL_ASSERT(s1 != NULL);
    VEL_ASSERT(s2 != NULL);

    for (;; s1++, s2++) {
        const auto c1 = static_cast<signed char>(*s1);
        const auto c2 = static_cast<signed char>(*s2);
        /* tolower of glibc gives a negative byte back as the positive one. */
        const int result =
            static_cast<signed char>(tolower(c1)) - static_cast<signed char>(tolower(c2));
        if (result != 0)
            return result;
        if (c1 == '\0') {
            VEL_ASSERT(c2 == '\0');
            VEL_ASSERT(result == 0);
            return result;
        }
    }
}
