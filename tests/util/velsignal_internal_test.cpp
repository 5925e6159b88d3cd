#include <csignal>
#include <cstring>

#include <gtest/gtest.h>

#include "util/velsignal_internal.h"

#include "support/assertion.h"

static int arrivals;
static int arrivedsignal;
static void *arrivedcontext;

static void note_arrival(int velsignal, void *context)
{
    arrivals++;
    arrivedsignal = velsignal;
    arrivedcontext = context;
}

static bool table_is_empty()
{
    const char empty[sizeof(vel_signal_table)] = {};
    return memcmp(vel_signal_table, empty, sizeof(empty)) == 0;
}

/* Only 2 and 15 have a callback, and only 13 can be ignored. */
TEST(VelsignalRegister, OtherSignalsAreRefusedWithNothingTouched)
{
    int context = 0;
    for (int number = VEL_SIGNAL_NONE + 1; number < VEL_SIGNAL_COUNT; number++) {
        if (number == 2 || number == 15)
            continue;
        struct sigaction before = {};
        struct sigaction after = {};
        sigaction(number, nullptr, &before);
        EXPECT_EQ(vel_signal_register(number, note_arrival, &context), -1) << number;
        EXPECT_TRUE(table_is_empty()) << number;
        sigaction(number, nullptr, &after);
        EXPECT_EQ(after.sa_handler, before.sa_handler) << number;
    }
}

TEST(VelsignalIgnore, OtherSignalsAreRefusedWithNothingTouched)
{
    for (int number = VEL_SIGNAL_NONE + 1; number < VEL_SIGNAL_COUNT; number++) {
        if (number == 13)
            continue;
        struct sigaction before = {};
        struct sigaction after = {};
        sigaction(number, nullptr, &before);
        EXPECT_EQ(vel_signal_ignore(number), -1) << number;
        sigaction(number, nullptr, &after);
        EXPECT_EQ(after.sa_handler, before.sa_handler) << number;
    }
    EXPECT_TRUE(table_is_empty());
}

/* The row says what is called, and the number that arrived is passed on. */
TEST(VelsignalHandler, CallsTheRowWithTheDeliveredNumber)
{
    int context = 0;
    vel_signal_table[2] = {note_arrival, &context};
    vel_signal_handler(2, 99);
    vel_signal_handler(15, 15);
    vel_signal_table[2] = {nullptr, nullptr};
    EXPECT_EQ(arrivals, 1);
    EXPECT_EQ(arrivedsignal, 99);
    EXPECT_EQ(arrivedcontext, &context);
}

TEST(VelsignalDeathTest, NumberIsAsserted)
{
    for (const int number : {VEL_SIGNAL_NONE + 0, -1}) {
        const char *text = "velsignal > VEL_SIGNAL_NONE";
        EXPECT_DEATH(vel_signal_register(number, nullptr, nullptr),
                     support::asserts(text, "vel_signal_register"));
        EXPECT_DEATH(vel_signal_ignore(number), support::asserts(text, "vel_signal_ignore"));
        EXPECT_DEATH(vel_signal_handler(number, 2), support::asserts(text, "vel_signal_handler"));
    }
    for (const int number : {VEL_SIGNAL_COUNT + 0, 1000}) {
        const char *text = "velsignal < VEL_SIGNAL_COUNT";
        EXPECT_DEATH(vel_signal_register(number, nullptr, nullptr),
                     support::asserts(text, "vel_signal_register"));
        EXPECT_DEATH(vel_signal_ignore(number), support::asserts(text, "vel_signal_ignore"));
        EXPECT_DEATH(vel_signal_handler(number, 2), support::asserts(text, "vel_signal_handler"));
    }
}
