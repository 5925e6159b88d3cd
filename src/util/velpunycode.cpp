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

/* Makes an array of the other type where it stands. The two types have one form, but only a copy of
 * the bytes, which the compiler leaves out, lets one be read as the other. */
template <typename To, typename From> static To *vel_punycode_retype(From *array, size_t len)
{
    static_assert(sizeof(To) == sizeof(From));
    void *bytes = array;
    return static_cast<To *>(memmove(bytes, bytes, len * sizeof(To)));
}

/* A new string, or NULL. Behind the buffer there is a 0. */
static char *vel_punycode_unicode_buffer_to_utf8(uint32_t *buffer, size_t len)
{
    VEL_ASSERT(buffer != NULL);

    return vel_punycode_wchar_to_utf8(vel_punycode_retype<wchar_t>(buffer, len + 1));
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
        convert(vel_punycode_retype<uint32_t>(wide, len), len, &converted, &convertedlen);
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
