#ifndef VELLIB_UTIL_VELASSERT_H
#define VELLIB_UTIL_VELASSERT_H

#include <cstddef> /* conditions say NULL */

/* The two forms of assertion. Both stay in every build, and their texts are output: write the
 * condition in the function that is meant, and exactly as its reader should see it. */

/* Says which condition of which function does not hold, in one write, and aborts. */
[[noreturn, gnu::cold]] void vel_assert_fail(const char *function, const char *file, int line,
                                             const char *expression);

/* Says where a branch that no valid state reaches was reached, and aborts. */
[[noreturn, gnu::cold]] void vel_assert_unreachable(const char *modulepath, int line);

/* The argument is stringified here and not in a helper macro, where NULL would expand. */
#define VEL_ASSERT(...)                                                                            \
    (__builtin_expect(!(__VA_ARGS__), 0)                                                           \
         ? vel_assert_fail(__func__, __FILE_NAME__, __LINE__, #__VA_ARGS__)                        \
         : static_cast<void>(0))

#define VEL_UNREACHABLE() vel_assert_unreachable(VEL_MODULE, __LINE__)

#endif
