#ifndef TESTS_SUPPORT_OOM_H
#define TESTS_SUPPORT_OOM_H

#include <cstddef>

namespace support {

/* Drives every allocation that the scenario reaches to failure once, each in its own call stack.
 *
 * The scenario is the ordinary life of a module: it stops at the first failure, frees what it has
 * and returns false, or comes to its end and returns true. It is repeated with failure injection
 * on, in a process of its own and an empty working directory, until no new stack fails; then it
 * must have come to its end. A crash, a leak (where the build looks for them) and an exit before
 * the end fail the test. The number of distinct stacks is printed and returned.
 *
 * The scenario may use gtest's EXPECT_ and ASSERT_ macros; what they find fails the test. Call this
 * once in a test, and do nothing else in that test: the test itself is run again in the process.
 * What is printed with the marker "oom: " names the test and the stacks. */
size_t vel_oom_drive(bool (*scenario)());

} // namespace support

#endif
