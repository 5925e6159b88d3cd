#ifndef TESTS_SUPPORT_LOADRESULT_H
#define TESTS_SUPPORT_LOADRESULT_H

#include <cstddef>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <vellib/velmalloc.h>

namespace support {

/* What a load gives; the outputs start dirty. */
struct load_result {
    int result;
    bool isnull;
    std::string data;
    size_t length;

    bool operator==(const load_result &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const load_result &one)
{
    return out << one.result << " " << (one.isnull ? "NULL" : one.data) << " " << one.length;
}

inline const load_result kNothing = {-1, true, "", 0};

inline load_result loaded(const std::string &data)
{
    return {0, false, data, data.size()};
}

using load_function = int (*)(const char *, void **, size_t *);

inline load_result load_with(load_function function, const char *name)
{
    char dirt = 0;
    void *data = &dirt;
    size_t length = 77;
    load_result load = {function(name, &data, &length), !data, "", length};
    if (data) {
        load.data.assign(static_cast<char *>(data), length);
        EXPECT_EQ(static_cast<char *>(data)[length], '\0');
        vel_free(data);
    }
    return load;
}

} // namespace support

#endif
