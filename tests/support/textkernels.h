#ifndef TESTS_SUPPORT_TEXTKERNELS_H
#define TESTS_SUPPORT_TEXTKERNELS_H

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/textkernels.h"

namespace support {

/* A test of this kind runs with each set of kernels that the processor at hand can run. */
class textkernels_test : public testing::TestWithParam<const vel_textkernels *> {};

inline std::vector<const vel_textkernels *> usable_textkernels()
{
    std::vector<const vel_textkernels *> usable;
    for (const auto &kernels : vel_textkernels_all())
        if (kernels.usable())
            usable.push_back(&kernels);
    return usable;
}

inline std::string textkernels_name(const testing::TestParamInfo<const vel_textkernels *> &test)
{
    return test.param->name;
}

/* A heap block of exactly these bytes, so that a read behind them is found. */
class exact_block {
  public:
    explicit exact_block(const std::string &bytes) : block_(new char[bytes.size()])
    {
        bytes.copy(block_.get(), bytes.size());
    }
    const char *data() const
    {
        return block_.get();
    }

  private:
    std::unique_ptr<char[]> block_;
};

} // namespace support

#endif
