#ifndef TESTS_SUPPORT_ASSERTION_H
#define TESTS_SUPPORT_ASSERTION_H

#include <string>

#include <gmock/gmock.h>

namespace support {

/* What a death test expects on the standard error stream when the assertion with this expression
 * fails, in the given function where the test knows it. */
inline testing::Matcher<const std::string &> asserts(const std::string &expression,
                                                     const std::string &function = "vel_")
{
    return testing::HasSubstr("Assertion failed: (" + expression + "), function " + function +
                              (function == "vel_" ? "" : ", file "));
}

} // namespace support

#endif
