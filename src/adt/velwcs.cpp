#include <vellib/velwcs.h>

#include <cstdint>
#include <cwchar>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "util/velassert.h"

/* A new copy of the first len characters, terminated. */
static wchar_t *vel_wcs_copy(const wchar_t *wstring, size_t len)
{
    auto *copy = static_cast<wchar_t *>(vel_malloc((len + 1) * sizeof(wchar_t)));
    if (!copy)
        return nullptr;
    wmemcpy(copy, wstring, len);
    copy[len] = 0;
    return copy;
}

/* Reads neither string behind its end or the first difference. */
static int vel_wcs_compare(const wchar_t *s1, const wchar_t *s2, size_t n)
{
    for (size_t i = 0; i < n; i++) {
        const auto c1 = static_cast<uint32_t>(s1[i]), c2 = static_cast<uint32_t>(s2[i]);
        if (c1 != c2)
            return static_cast<int>(c1 - c2);
        if (c1 == 0)
            break;
    }
    return 0;
}

size_t vel_wcslen(const wchar_t *wstring)
{
    VEL_ASSERT(wstring != NULL);

    return wcslen(wstring);
}

int vel_wcscmp(const wchar_t *s1, const wchar_t *s2)
{
    VEL_ASSERT(s1 != NULL);
    VEL_ASSERT(s2 != NULL);

    return vel_wcs_compare(s1, s2, vel_limit_max_size_t());
}

int vel_wcsncmp(const wchar_t *s1, const wchar_t *s2, size_t n)
{
    VEL_ASSERT(s1 != NULL);
    VEL_ASSERT(s2 != NULL);

    return vel_wcs_compare(s1, s2, n);
}

wchar_t *vel_wcsdup(const wchar_t *wstring)
{
    VEL_ASSERT(wstring != NULL);

    const size_t len = wcslen(wstring);
    if (len >= vel_limit_max_size_t() / 4)
        return nullptr;
    return vel_wcs_copy(wstring, len);
}

/* The loop, as wcsnlen of some C libraries goes wrong with a large n. */
wchar_t *vel_wcsndup(const wchar_t *wstring, size_t n)
{
    VEL_ASSERT(wstring != NULL);

    size_t len = 0;
    while (len < n && wstring[len] != 0)
        len++;
    if ((len + 1) * 4 <= len)
        return nullptr;
    return vel_wcs_copy(wstring, len);
}
