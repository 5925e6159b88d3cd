#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "platform/shakernels.h"
#include "support/sha.h"

using namespace support;

static std::vector<const vel_shakernels *> usable_kernels()
{
    std::vector<const vel_shakernels *> usable;
    for (const vel_shakernels &kernels : vel_shakernels_all())
        if (kernels.usable())
            usable.push_back(&kernels);
    return usable;
}

TEST(Shakernels, BestIsTheFirstUsable)
{
    ASSERT_FALSE(usable_kernels().empty());
    EXPECT_EQ(vel_shakernels_best(), usable_kernels().front());
    EXPECT_EQ(vel_shakernels_best(), usable_kernels().front()) << "asked again";
}

TEST(Shakernels, LastIsPlainAndAlwaysUsable)
{
    EXPECT_STREQ(vel_shakernels_all().back().name, "plain");
    EXPECT_TRUE(vel_shakernels_all().back().usable());
}

struct sha1_step {
    using naive = naive_sha1;
    static constexpr auto step = &vel_shakernels::sha1;
};

struct sha256_step {
    using naive = naive_sha256;
    static constexpr auto step = &vel_shakernels::sha256;
};

template <typename Step> class ShakernelsStep : public testing::Test {
};
using steps = testing::Types<sha1_step, sha256_step>;
TYPED_TEST_SUITE(ShakernelsStep, steps);

/* Random blocks in every number up to 17 and at every alignment into random states; the blocks end
 * where their memory ends. */
TYPED_TEST(ShakernelsStep, EveryKernelFollowsTheStandard)
{
    const size_t words = TypeParam::naive::initial().size();
    for (const vel_shakernels *kernels : usable_kernels()) {
        std::mt19937 random(5);
        for (int turn = 0; turn < 600; turn++) {
            const size_t count = static_cast<size_t>(turn) % 18;
            const size_t offset = random() % 64;
            std::vector<uint8_t> memory(offset + 64 * count);
            for (uint8_t &byte : memory)
                byte = static_cast<uint8_t>(random());
            std::vector<uint32_t> h(words + 2);
            for (uint32_t &word : h)
                word = static_cast<uint32_t>(random());

            std::vector<uint32_t> expected = h;
            for (size_t i = 0; i < count; i++)
                TypeParam::naive::block(expected, memory.data() + offset + 64 * i);
            const std::vector<uint8_t> before = memory;
            (kernels->*TypeParam::step)(h.data(), memory.data() + offset, count);
            ASSERT_EQ(h, expected) << kernels->name << ", " << count << " blocks";
            ASSERT_EQ(memory, before);
        }
    }
}

/* Blocks and states of the same bit everywhere carry, or do not, through every addition. */
TYPED_TEST(ShakernelsStep, EveryKernelTakesExtremes)
{
    const size_t words = TypeParam::naive::initial().size();
    for (const vel_shakernels *kernels : usable_kernels()) {
        for (int turn = 0; turn < 4; turn++) {
            const std::vector<uint8_t> block(64, turn & 1 ? 0xff : 0);
            std::vector<uint32_t> h(words, turn & 2 ? 0xffffffff : 0);
            std::vector<uint32_t> expected = h;
            TypeParam::naive::block(expected, block.data());
            (kernels->*TypeParam::step)(h.data(), block.data(), 1);
            EXPECT_EQ(h, expected) << kernels->name << " " << turn;
        }
    }
}
