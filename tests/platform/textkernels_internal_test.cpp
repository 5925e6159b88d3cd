#include <gtest/gtest.h>

#include "platform/textkernels.h"
#include "support/textkernels.h"

TEST(Textkernels, BestIsTheFirstUsable)
{
    EXPECT_EQ(vel_textkernels_best(), support::usable_textkernels().front());
}

TEST(Textkernels, LastIsPlainAndAlwaysUsable)
{
    EXPECT_STREQ(vel_textkernels_all().back().name, "plain");
    EXPECT_TRUE(vel_textkernels_all().back().usable());
}
