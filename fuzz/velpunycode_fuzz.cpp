#include <cstring>
#include <string>
#include <vector>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/velpunycode_velurl.h>
#include <vellib/velurl.h>

#include "fuzz.h"
#include "util/velurl_internal.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* What an array function gives, and the same in two steps and with too little room. */
template <typename Allocate, typename Fill>
static vel_error_t convert(Allocate allocate, Fill fill, const std::vector<uint32_t> &source,
                           size_t capacity, std::vector<uint32_t> *resultptr)
{
    uint32_t *array;
    size_t len;
    const vel_error_t error = allocate(source.data(), source.size(), &array, &len);
    FUZZ_REQUIRE(error == VEL_ERROR_NONE || (error == VEL_ERROR_OUT_OF_RANGE && !array));
    *resultptr = {array, array + len};
    vel_free(array);

    std::vector<uint32_t> part(capacity + 1, 7);
    size_t partlen = capacity;
    const vel_error_t parterror = fill(part.data(), &partlen, source.data(), source.size());
    FUZZ_REQUIRE(part[capacity] == 7);
    if (error != VEL_ERROR_NONE)
        FUZZ_REQUIRE(parterror == error);
    else
        FUZZ_REQUIRE(partlen == len &&
                     parterror == (len > capacity ? VELURL_ERROR_TRUNCATED : VEL_ERROR_NONE));
    return error;
}

static vel_error_t decode(const std::vector<uint32_t> &text, size_t capacity,
                          std::vector<uint32_t> *pointsptr)
{
    return convert(vel_punycode_velurl_decode, vel_punycode_velurl_decode_to_warray, text, capacity,
                   pointsptr);
}

static vel_error_t encode(const std::vector<uint32_t> &points, size_t capacity,
                          std::vector<uint32_t> *textptr)
{
    return convert(vel_punycode_velurl_encode, vel_punycode_velurl_decode_from_warray, points,
                   capacity, textptr);
}

/* Code points that encode decode to themselves. */
static void check_points(const std::vector<uint32_t> &points, size_t capacity)
{
    std::vector<uint32_t> text, again;
    if (points.empty() || encode(points, capacity, &text) != VEL_ERROR_NONE)
        return;
    FUZZ_REQUIRE(decode(text, capacity, &again) == VEL_ERROR_NONE && again == points);
}

/* A name converts to ASCII, and what came back from there converts to the same. The label "xn--"
 * is not for the library. */
static void check_host(const std::string &host)
{
    char *ascii, *unicode;
    if (vel_url_idna_host_to_ascii(host.c_str(), &ascii) != VEL_ERROR_NONE) {
        FUZZ_REQUIRE(!ascii);
        return;
    }
    for (const char *c = ascii; *c; c++)
        FUZZ_REQUIRE(static_cast<unsigned char>(*c) < 0x80);
    const std::string labels = "." + std::string(ascii) + ".";
    if (labels.find(".xn--.") == std::string::npos &&
        vel_url_idna_host_to_unicode(ascii, &unicode) == VEL_ERROR_NONE) {
        if (host.find("xn--") == std::string::npos)
            FUZZ_REQUIRE(host == unicode);
        vel_free(unicode);
    }
    vel_free(ascii);
}

static void check_url(const std::string &url)
{
    char dirt = 0, *ascii = &dirt;
    if (vel_url_idna_url_to_ascii(url.c_str(), &ascii) != VEL_ERROR_NONE)
        FUZZ_REQUIRE(ascii == &dirt);
    else
        vel_free(ascii);
}

/* The first byte is a capacity. The rest is a text, a name, and code points. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1 || size > 2000)
        return 0;
    const size_t capacity = data[0];
    data++, size--;

    std::vector<uint32_t> decoded;
    if (decode({data, data + size}, capacity, &decoded) == VEL_ERROR_NONE)
        check_points(decoded, capacity);
    std::vector<uint32_t> points(size / 3);
    for (size_t i = 0; i < points.size(); i++)
        points[i] = (data[3 * i] & 0x1fu) << 16 | data[3 * i + 1] * 256u | data[3 * i + 2];
    check_points(points, capacity);

    std::string text(data, data + size);
    text.resize(strlen(text.c_str()));
    check_host(text);
    check_url(text);
    check_url("http://" + text);
    return 0;
}
