#ifndef TESTS_SUPPORT_EACHFAILURE_H
#define TESTS_SUPPORT_EACHFAILURE_H

/* Like platform_malloc.h, which this includes, for one source of a program. */

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellog.h>

#include "support/logcapture.h"
#include "support/platform_malloc.h"

namespace support {

/* Makes the buffers of the default log large enough that no message allocates, and forgets the
 * line that does it. */
inline void warm_log(log_capture &log)
{
    const std::string text(4000, 'x');
    vel_log_macro_mutex_lock();
    vel_log_macro_set_values(nullptr, 8, "test/warm", 1);
    vel_log_macro_format("%s", text.c_str());
    vel_log_macro_mutex_unlock();
    log.clear();
}

/* Repeats an action, at first with the first allocation of the library in it failing, then with the
 * second one, and so on, until it gives true. An action that fails gives false, and is ready to be
 * repeated. Gives what the failures logged in a module, and those whose names begin with its name,
 * each kind once, in their order. */
template <typename Action>
std::vector<std::vector<log_line>> each_failure(log_capture &log, const std::string &module,
                                                Action action)
{
    std::vector<std::vector<log_line>> failures;
    warm_log(log);
    for (size_t number = 1; number <= 64; number++) {
        bool succeeded;
        {
            malloc_watch watch(number);
            succeeded = action();
        }
        std::vector<log_line> lines = log.take_from(module);
        if (succeeded)
            return failures;
        if (failures.empty() || failures.back() != lines)
            failures.push_back(std::move(lines));
    }
    ADD_FAILURE() << "the action does not succeed";
    return failures;
}

} // namespace support

#endif
