#ifndef TESTS_SUPPORT_SHARED_H
#define TESTS_SUPPORT_SHARED_H

#include <memory>

#include <gtest/gtest.h>

namespace support {

/* One object that all tests of a program share. It is made before the first of them and destroyed
 * after the last:
 *
 *     [[maybe_unused]] static const auto *kEnvironment =
 *         testing::AddGlobalTestEnvironment(new support::shared<servers>);
 */
template <typename Object> class shared : public testing::Environment {
  public:
    void SetUp() override
    {
        all = std::make_unique<Object>();
    }
    void TearDown() override
    {
        all.reset();
    }

    static inline std::unique_ptr<Object> all;
};

} // namespace support

#endif
