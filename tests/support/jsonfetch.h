#ifndef TESTS_SUPPORT_JSONFETCH_H
#define TESTS_SUPPORT_JSONFETCH_H

#include <ostream>

#include <gtest/gtest.h>

#include "support/jsontest.h"
#include "support/logcapture.h"

namespace support {

/* What a fetch gives; the output starts dirty. */
template <typename Output> struct fetched {
    int result;
    Output value;
    log_lines lines;

    bool operator==(const fetched &) const = default;
};

template <typename Output> std::ostream &operator<<(std::ostream &out, const fetched<Output> &one)
{
    return out << one.result << " " << one.value << testing::PrintToString(one.lines);
}

template <typename Output, typename Fetch>
fetched<Output> fetch(log_capture &log, Output dirt, Fetch call)
{
    log.clear();
    fetched<Output> one = {77, dirt, {}};
    one.result = call(&one.value);
    one.lines = json_lines(log);
    return one;
}

} // namespace support

#endif
