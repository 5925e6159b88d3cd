#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/filecalls.h"
#include "support/filetest.h"
#include "support/logcapture.h"
#include "support/rows.h"
#include "support/tempdir.h"

using support::log_line;
using support::made;
using support::pretend;
using support::watch;
using lines = std::vector<log_line>;
using texts = std::vector<std::string>;

/* Seeking */

TEST_F(Velfile, SeekIsThePlatforms)
{
    FILE *file = open_digits();
    EXPECT_EQ(vel_file_seek(file, 3, SEEK_SET), 0);
    EXPECT_EQ(take(file, 2), "34");
    EXPECT_EQ(vel_file_seek(file, 2, SEEK_CUR), 0);
    EXPECT_EQ(take(file, 1), "7");
    EXPECT_EQ(vel_file_seek(file, -4, SEEK_END), 0);
    EXPECT_EQ(take(file, 9), "6789");
    errno = 0;
    EXPECT_EQ(vel_file_seek(file, -1, SEEK_SET), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(vel_file_close(file), 0);
}

struct seek_case {
    const char *name;
    int64_t offset;
    int whence;
    long position; /* from 4 in ten bytes */
    texts calls;
};

static void PrintTo(const seek_case &one, std::ostream *out)
{
    *out << one.name;
}

static const seek_case kSeekCases[] = {
    {"SetForwards", 7, SEEK_SET, 7, {"rewind", "fseek 7 1"}},
    {"SetZero", 0, SEEK_SET, 0, {"rewind"}},
    {"SetBeyond", 5000000000, SEEK_SET, 5000000000, {"rewind", "fseek 5000000000 1"}},
    {"CurForwards", 3, SEEK_CUR, 7, {"fseek 3 1"}},
    {"CurZero", 0, SEEK_CUR, 4, {}},
    {"CurBackwards", -3, SEEK_CUR, 1, {"fseek -3 1"}},
    {"EndZero", 0, SEEK_END, 10, {"fseek 0 2"}},
    {"EndBackwards", -10, SEEK_END, 0, {"fseek 0 2", "fseek -10 1"}},
    {"EndForwards", 5, SEEK_END, 15, {"fseek 0 2", "fseek 5 1"}},
};

class VelfileSeek : public Velfile, public testing::WithParamInterface<seek_case> {};

TEST_P(VelfileSeek, Position)
{
    FILE *file = open_digits();
    ASSERT_EQ(fseek(file, 4, SEEK_SET), 0);
    {
        const watch calls({}, {file});
        EXPECT_EQ(vel_file_seek64(file, GetParam().offset, GetParam().whence), 0);
        EXPECT_EQ(made, GetParam().calls);
    }
    EXPECT_EQ(ftell(file), GetParam().position);
    EXPECT_EQ(vel_file_close(file), 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelfileSeek, testing::ValuesIn(kSeekCases), support::row_name());

/* Distances that no file has: the platform's function is only told. */
struct far_case {
    const char *name;
    int (*seek)(FILE *file);
    texts calls;
};

static void PrintTo(const far_case &one, std::ostream *out)
{
    *out << one.name;
}

static const uint64_t kHalf = UINT64_C(1) << 63;

static const far_case kFarCases[] = {
    {"ForwardsZero", [](FILE *file) { return vel_file_seek_forwards_64(file, 0); }, {}},
    {"ForwardsOne", [](FILE *file) { return vel_file_seek_forwards_64(file, 1); }, {"fseek 1 1"}},
    {"ForwardsLongest",
     [](FILE *file) { return vel_file_seek_forwards_64(file, kHalf - 1); },
     {"fseek 9223372036854775807 1"}},
    {"ForwardsTwoSteps",
     [](FILE *file) { return vel_file_seek_forwards_64(file, kHalf); },
     {"fseek 9223372036854775807 1", "fseek 1 1"}},
    {"ForwardsThreeSteps",
     [](FILE *file) { return vel_file_seek_forwards_64(file, UINT64_MAX); },
     {"fseek 9223372036854775807 1", "fseek 9223372036854775807 1", "fseek 1 1"}},
    {"BackwardsZero", [](FILE *file) { return vel_file_seek_backwards_64(file, 0); }, {}},
    {"BackwardsOne",
     [](FILE *file) { return vel_file_seek_backwards_64(file, 1); },
     {"fseek -1 1"}},
    {"BackwardsNearlyLongest",
     [](FILE *file) { return vel_file_seek_backwards_64(file, kHalf - 1); },
     {"fseek -9223372036854775807 1"}},
    {"BackwardsLongest",
     [](FILE *file) { return vel_file_seek_backwards_64(file, kHalf); },
     {"fseek -9223372036854775808 1"}},
    {"BackwardsTwoSteps",
     [](FILE *file) { return vel_file_seek_backwards_64(file, kHalf + 1); },
     {"fseek -9223372036854775808 1", "fseek -1 1"}},
    {"BackwardsAll",
     [](FILE *file) { return vel_file_seek_backwards_64(file, UINT64_MAX); },
     {"fseek -9223372036854775808 1", "fseek -9223372036854775807 1"}},
    {"CurFarthestForwards",
     [](FILE *file) { return vel_file_seek64(file, INT64_MAX, SEEK_CUR); },
     {"fseek 9223372036854775807 1"}},
    {"CurFarthestBackwards",
     [](FILE *file) { return vel_file_seek64(file, INT64_MIN, SEEK_CUR); },
     {"fseek -9223372036854775808 1"}},
    {"EndFarthestBackwards",
     [](FILE *file) { return vel_file_seek64(file, INT64_MIN, SEEK_END); },
     {"fseek 0 2", "fseek -9223372036854775808 1"}},
};

class VelfileFar : public Velfile, public testing::WithParamInterface<far_case> {};

TEST_P(VelfileFar, Steps)
{
    FILE *file = open_digits();
    {
        const watch calls({}, {file});
        pretend = true;
        EXPECT_EQ(GetParam().seek(file), 0);
        EXPECT_EQ(made, GetParam().calls);
    }
    /* The first step that fails is the last, and its result comes back. */
    const size_t own = GetParam().calls.size();
    for (size_t step = 1; step <= own; step++) {
        const watch calls({{"fseek", static_cast<int>(step), EIO}}, {file});
        pretend = true;
        errno = 0;
        EXPECT_EQ(GetParam().seek(file), -2);
        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(made.size(), step);
        if (GetParam().calls.front() == "fseek 0 2" && step == 1) {
            EXPECT_EQ(log.take(),
                      (lines{{"io/velfile", 6, "Failed to seek at the end of the file"}}));
        }
    }
    EXPECT_EQ(vel_file_close(file), 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, VelfileFar, testing::ValuesIn(kFarCases), support::row_name());

TEST_F(Velfile, NegativeOffsetFromTheStartIsLogged)
{
    FILE *file = open_digits();
    ASSERT_EQ(fseek(file, 4, SEEK_SET), 0);
    for (const int64_t offset : {int64_t{-1}, INT64_MIN}) {
        const watch calls({}, {file});
        EXPECT_EQ(vel_file_seek64(file, offset, SEEK_SET), -1);
        EXPECT_EQ(made, (texts{}));
        EXPECT_EQ(log.take(),
                  (lines{{"io/velfile", 6, "SEEK_SET cannot be called with a negative offset"}}));
    }
    EXPECT_EQ(ftell(file), 4);
    EXPECT_EQ(vel_file_close(file), 0);
}

TEST_F(Velfile, StreamThatCannotBeSought)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    FILE *file = fdopen(ends[0], "rb");
    ASSERT_NE(file, nullptr);
    close(ends[1]);
    errno = 0;
    EXPECT_EQ(vel_file_seek64(file, 0, SEEK_END), -1);
    EXPECT_EQ(log.take(), (lines{{"io/velfile", 6, "Failed to seek at the end of the file"}}));
    EXPECT_EQ(vel_file_seek64(file, 1, SEEK_CUR), -1);
    EXPECT_EQ(vel_file_seek64(file, -1, SEEK_CUR), -1);
    EXPECT_EQ(vel_file_seek_forwards_64(file, 1), -1);
    EXPECT_EQ(vel_file_seek_backwards_64(file, 1), -1);
    EXPECT_EQ(errno, ESPIPE);
    EXPECT_EQ(vel_file_get_length(file), -1);
    EXPECT_EQ(vel_file_close(file), 0);
}

TEST_F(VelfileDeathTest, WhenceIsAsserted)
{
    const char *text = "whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END";
    FILE *file = open_digits();
    for (const int whence : {-1, 3}) {
        EXPECT_DEATH(vel_file_seek(file, 0, whence), support::asserts(text, "vel_file_seek"));
        EXPECT_DEATH(vel_file_seek64(file, 0, whence), support::asserts(text, "vel_file_seek64"));
    }
    EXPECT_EQ(vel_file_close(file), 0);
}
