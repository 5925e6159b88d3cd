#ifndef TESTS_SUPPORT_ALLOCFAIL_H
#define TESTS_SUPPORT_ALLOCFAIL_H

/* Fails the allocations of an operation one by one, in the same process and in a known order, and
 * collects what was logged. Include this in one source of a program. */

#include <cstddef>
#include <string>
#include <vector>

#include <vellib/vellog.h>

#include "support/logcapture.h"
#include "support/platform_malloc.h"

namespace support {

/* Calls run once with every single allocation failing, and gives the lines of the log of each run
 * that gave false, in the order of the allocations. The log allocates where a line is the longest so
 * far, and an address in it may grow by a digit: a long line before all makes the numbers the same in
 * each run. */
template <typename Run> std::vector<std::vector<log_line>> allocfail_each(log_capture &log, Run run)
{
    std::vector<std::vector<log_line>> failures;
    VEL_LOG_AT(nullptr, 13, "support/allocfail", __LINE__, "%s", std::string(1000, '.').c_str());
    for (size_t number = 1; number < 1000; number++) {
        log.clear();
        bool succeeded;
        {
            malloc_watch watch(number, number);
            succeeded = run();
        }
        if (malloc_watch::count() < number)
            return failures;
        if (!succeeded)
            failures.push_back(log.take());
    }
    failures.push_back({{"", -1, "the allocations do not come to an end"}});
    return failures;
}

/* The last line of each run of allocfail_each. */
template <typename Run> std::vector<log_line> allocfail_lines(log_capture &log, Run run)
{
    std::vector<log_line> lines;
    for (const std::vector<log_line> &failure : allocfail_each(log, run))
        lines.push_back(failure.empty() ? log_line{"", 0, ""} : failure.back());
    return lines;
}

} // namespace support

#endif
