#include <vellib/velstrstrip.h>

#include <cctype>
#include <cstring>

#include <vellib/velstrndup.h>

#include "util/velassert.h"

static bool vel_strstrip_isspace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

void vel_strptrstrip(const char **strptr, size_t *strlenptr)
{
    VEL_ASSERT(strptr);
    VEL_ASSERT(strlenptr);

    /* From the end first: text that is all white space leaves the pointer where it is. */
    while (*strlenptr > 0 && vel_strstrip_isspace((*strptr)[*strlenptr - 1]))
        (*strlenptr)--;
    while (*strlenptr > 0 && vel_strstrip_isspace(**strptr)) {
        (*strptr)++;
        (*strlenptr)--;
    }
}

char *vel_strstrip(const char *str)
{
    VEL_ASSERT(str);

    size_t len = strlen(str);
    vel_strptrstrip(&str, &len);
    return vel_strndup(str, len);
}
