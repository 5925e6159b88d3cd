#ifndef TESTS_SUPPORT_EVERYERRNO_H
#define TESTS_SUPPORT_EVERYERRNO_H

#include <functional>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velerror.h>

#include "support/dircalls.h"
#include "support/logcapture.h"

namespace support {

/* What a function is to make of an error of the platform. */
struct errno_expectations {
    std::map<int, vel_error_t> results; /* VEL_ERROR_GENERIC for the rest */
    std::function<std::vector<log_line>(int error)> logged;
    std::function<std::vector<log_line>(int error)> unhandledlogged; /* for the rest */
};

/* Runs an action with every error that the platform may give for a call with that name or path. */
template <typename Action>
void expect_for_every_errno(log_capture &log, const char *call, const char *name,
                            const errno_expectations &expected, Action action)
{
    for (int error = 1; error <= 140; error++) {
        SCOPED_TRACE(error);
        vel_error_t result;
        {
            const dir_watch calls({{call, name, error}});
            result = action();
        }
        const auto found = expected.results.find(error);
        if (found == expected.results.end()) {
            EXPECT_EQ(result, VEL_ERROR_GENERIC);
            EXPECT_EQ(log.take(), expected.unhandledlogged(error));
        } else {
            EXPECT_EQ(result, found->second);
            EXPECT_EQ(log.take(), expected.logged(error));
        }
    }
}

} // namespace support

#endif
