#include <vellib/velpunycode.h>

#include <cstring>
#include <cwchar>

#include <vellib/velmalloc.h>
#include <vellib/velpunycode_velurl.h>
#include <vellib/velpunycode_wchar.h>

#include "util/velassert.h"

/* One of the two that make an array of another. */
typedef vel_error_t vel_punycode_array_function(const uint32_t *source, size_t sourcelen,
                                                uint32_t **destptr, size_t *destlenptr);

/* Makes code points of wide characters where they stand. The two types have one form, but only a
 * copy of the bytes, which the compiler leaves out, lets one be read as the other. */
static const uint32_t *vel_punycode_code_points(wchar_t *wide, size_t len)
{
    static_assert(sizeof(wchar_t) == sizeof(uint32_t));
    void *bytes = wide;
    return static_cast<uint32_t *>(memmove(bytes, bytes, len * sizeof(uint32_t)));
}

/* A new string, or NULL. There is no overflow: the array stands in memory, and a byte for each of
 * its elements does as well. */
static char *vel_punycode_unicode_buffer_to_utf8(const uint32_t *buffer, size_t len)
{
    VEL_ASSERT(buffer != NULL);

    auto *wide = static_cast<wchar_t *>(vel_malloc((len + 1) * sizeof(wchar_t)));
    if (!wide)
        return nullptr;
    memcpy(wide, buffer, len * sizeof(wchar_t));
    wide[len] = 0;
    char *utf8 = vel_punycode_wchar_to_utf8(wide);
    vel_free(wide);
    return utf8;
}

static vel_error_t velpunycode_punycode_encode_decode(vel_punycode_array_function *convert,
                                                      const char *input, char **output)
{
    VEL_ASSERT(convert == vel_punycode_velurl_encode || convert == vel_punycode_velurl_decode);

    *output = nullptr;
    wchar_t *wide = vel_punycode_wchar_from_utf8(input);
    if (!wide)
        return VEL_ERROR_GENERIC;
    const size_t len = vel_punycode_wchar_strlen(wide);
    uint32_t *converted;
    size_t convertedlen;
    const vel_error_t error =
        convert(vel_punycode_code_points(wide, len), len, &converted, &convertedlen);
    vel_free(wide);
    if (error != VEL_ERROR_NONE)
        return error;
    *output = vel_punycode_unicode_buffer_to_utf8(converted, convertedlen);
    vel_free(converted);
    return *output ? VEL_ERROR_NONE : VEL_ERROR_GENERIC;
}

vel_error_t vel_punycode_encode(const char *input, char **output)
{
    if (output)
        *output = nullptr;
    if (!input || !output)
        return VEL_ERROR_INVALID_ARGUMENT;
    return velpunycode_punycode_encode_decode(vel_punycode_velurl_encode, input, output);
}

vel_error_t vel_punycode_decode(const char *input, char **output)
{
    if (output)
        *output = nullptr;
    if (!input || !output)
        return VEL_ERROR_INVALID_ARGUMENT;
    return velpunycode_punycode_encode_decode(vel_punycode_velurl_decode, input, output);
}
