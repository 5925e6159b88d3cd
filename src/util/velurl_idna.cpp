#include <vellib/velurl.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <vellib/velmalloc.h>
#include <vellib/velpunycode.h>

#include "util/vellog_macros.h"
#include "util/velurl_internal.h"

/* This is the third part of velurl, and its log lines say so. */
#define VEL_MODULE "util/velurl"

static constexpr char vel_url_ace_prefix[] = "xn--";
static constexpr size_t vel_url_ace_prefix_len = sizeof(vel_url_ace_prefix) - 1;

/* The array of a host ends in a label without text. Behind it, in the same block, stands a copy of
 * the host, cut into its labels. */
struct vel_url_label {
    const char *text;
    char *converted; /* a block of its own; NULL while text is part of the host */
};

static void vel_url_free_array(vel_url_label *labels)
{
    for (vel_url_label *label = labels; label->text; label++)
        vel_free(label->converted);
    vel_free(labels);
}

/* Empty labels count. NULL is a lack of memory. */
static vel_url_label *vel_url_split_string(const char *string, char separator)
{
    const size_t len = strlen(string);
    const auto count = static_cast<size_t>(std::count(string, string + len, separator)) + 1;
    if (count >= (SIZE_MAX - len) / sizeof(vel_url_label) - 1)
        return nullptr;
    const size_t arraysize = (count + 1) * sizeof(vel_url_label);
    auto *labels = static_cast<vel_url_label *>(vel_cmalloc(arraysize + len + 1));
    if (!labels)
        return nullptr;
    char *text = static_cast<char *>(static_cast<void *>(labels)) + arraysize;
    memcpy(text, string, len + 1);
    for (size_t i = 0; i < count; i++) {
        labels[i].text = text;
        text = strchrnul(text, separator);
        *text++ = '\0';
    }
    return labels;
}

/* NULL is a lack of memory. There is at least one label. */
static char *vel_url_join_strings(const vel_url_label *labels, char separator)
{
    size_t size = 0; /* with a separator, or the terminator, behind each */
    for (const vel_url_label *label = labels; label->text; label++)
        size += strlen(label->text) + 1;
    auto *joined = static_cast<char *>(vel_malloc(size));
    if (!joined)
        return nullptr;
    char *dest = joined;
    for (; labels->text; labels++) {
        dest = stpcpy(dest, labels->text);
        *dest++ = separator;
    }
    dest[-1] = '\0';
    return joined;
}

static bool vel_url_label_needs_encoding(const char *label)
{
    for (; *label; label++)
        if (static_cast<unsigned char>(*label) >= 0x80)
            return true;
    return false;
}

static vel_error_t vel_url_encode_label(const char *label, char **result)
{
    char *punycode;
    const vel_error_t error = vel_punycode_encode(label, &punycode);
    if (error != VEL_ERROR_NONE)
        return error;
    const size_t size = strlen(punycode) + 1;
    *result = static_cast<char *>(vel_malloc(vel_url_ace_prefix_len + size));
    if (*result) {
        memcpy(*result, vel_url_ace_prefix, vel_url_ace_prefix_len);
        memcpy(*result + vel_url_ace_prefix_len, punycode, size);
    }
    vel_free(punycode);
    return *result ? VEL_ERROR_NONE : VEL_ERROR_NO_MEMORY;
}

static bool vel_url_label_needs_decoding(const char *label)
{
    return strncmp(label, vel_url_ace_prefix, vel_url_ace_prefix_len) == 0;
}

static const char *vel_url_strip_ace_prefix(const char *label)
{
    return label + vel_url_ace_prefix_len;
}

static vel_error_t vel_url_decode_label(const char *label, char **result)
{
    return vel_punycode_decode(vel_url_strip_ace_prefix(label), result);
}

/* Converts the labels that need it. */
static vel_error_t
vel_url_encode_decode_labels(vel_url_label *labels, bool (*needs)(const char *label),
                             vel_error_t (*convert)(const char *label, char **result))
{
    for (; labels->text; labels++) {
        if (!needs(labels->text))
            continue;
        const vel_error_t error = convert(labels->text, &labels->converted);
        if (error != VEL_ERROR_NONE)
            return error;
        labels->text = labels->converted;
    }
    return VEL_ERROR_NONE;
}

typedef vel_error_t vel_url_labels_function(vel_url_label *labels);

static vel_error_t vel_url_encode_labels(vel_url_label *labels)
{
    return vel_url_encode_decode_labels(labels, vel_url_label_needs_encoding, vel_url_encode_label);
}

static vel_error_t vel_url_decode_labels(vel_url_label *labels)
{
    return vel_url_encode_decode_labels(labels, vel_url_label_needs_decoding, vel_url_decode_label);
}

static vel_error_t vel_url_idna_host_conversion(const char *host,
                                                vel_url_labels_function *encode_decode_labels,
                                                char **result)
{
    *result = nullptr;
    vel_url_label *labels = vel_url_split_string(host, '.');
    if (!labels)
        return VEL_ERROR_NO_MEMORY;
    vel_error_t error = encode_decode_labels(labels);
    if (error == VEL_ERROR_NONE) {
        *result = vel_url_join_strings(labels, '.');
        if (!*result)
            error = VEL_ERROR_NO_MEMORY;
    }
    vel_url_free_array(labels);
    return error;
}

/* On failure *result is left as it was. */
static vel_error_t vel_url_idna_url_conversion(const char *url,
                                               vel_url_labels_function *encode_decode_labels,
                                               char **result)
{
    char *host, *converted;
    vel_error_t error = vel_url_get_host_from_url(url, &host);
    if (error != VEL_ERROR_NONE)
        return error;
    error = vel_url_idna_host_conversion(host, encode_decode_labels, &converted);
    if (error == VEL_ERROR_NONE) {
        error = vel_url_replace_host_in_url(url, host, converted, result);
        vel_free(converted);
    }
    vel_free(host);
    return error;
}

/* Logs which argument is missing, if one is. */
static bool vel_url_idna_check_arguments(const char *text, const char *name, char **result)
{
    if (!result) {
        VEL_LOG(6, "Invalid argument: result cannot be null");
        return false;
    }
    if (!text) {
        VEL_LOG(6, "Invalid argument: %s cannot be null", name);
        *result = nullptr;
        return false;
    }
    return true;
}

vel_error_t vel_url_idna_host_to_ascii(const char *host, char **result)
{
    if (!vel_url_idna_check_arguments(host, "host", result))
        return VEL_ERROR_INVALID_ARGUMENT;
    return vel_url_idna_host_conversion(host, vel_url_encode_labels, result);
}

vel_error_t vel_url_idna_host_to_unicode(const char *host, char **result)
{
    if (!vel_url_idna_check_arguments(host, "host", result))
        return VEL_ERROR_INVALID_ARGUMENT;
    return vel_url_idna_host_conversion(host, vel_url_decode_labels, result);
}

vel_error_t vel_url_idna_url_to_ascii(const char *url, char **result)
{
    if (!vel_url_idna_check_arguments(url, "url", result))
        return VEL_ERROR_INVALID_ARGUMENT;
    return vel_url_idna_url_conversion(url, vel_url_encode_labels, result);
}

vel_error_t vel_url_idna_url_to_unicode(const char *url, char **result)
{
    if (!vel_url_idna_check_arguments(url, "url", result))
        return VEL_ERROR_INVALID_ARGUMENT;
    return vel_url_idna_url_conversion(url, vel_url_decode_labels, result);
}
