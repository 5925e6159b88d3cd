#include <csignal>

#include <gmock/gmock.h>

#define VEL_MODULE "adt/velhash"
#include "util/velassert.h"

static void vel_reach_unreachable()
{
    VEL_UNREACHABLE();
}

/* Counts how often the condition is looked at. */
static bool look(int *looks, bool answer)
{
    (*looks)++;
    return answer;
}

static void vel_check_pair(const char *velhash, size_t entries)
{
    VEL_ASSERT(velhash != NULL);
    VEL_ASSERT(entries > 0 && velhash[0] == '\0');
}

TEST(Velassert, TrueConditionIsEvaluatedOnceAndGoesOn)
{
    int looks = 0;
    VEL_ASSERT(look(&looks, true));
    EXPECT_EQ(looks, 1);
}

TEST(VelassertDeathTest, ConditionPrintsItsTextAsWritten)
{
    EXPECT_EXIT(vel_check_pair(nullptr, 1), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("Assertion failed: (velhash != NULL), function vel_check_pair, "
                                   "file velassert_internal_test.cpp, line "));
    EXPECT_EXIT(vel_check_pair("", 0), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("Assertion failed: (entries > 0 && velhash[0] == '\\0'), "
                                   "function vel_check_pair, file "));
}

TEST(VelassertDeathTest, UnreachablePrintsModulePathAndLine)
{
    EXPECT_EXIT(vel_reach_unreachable(), testing::KilledBySignal(SIGABRT),
                testing::ContainsRegex("adt/velhash:[0-9]+: Assertion failed\\.\n"));
}
