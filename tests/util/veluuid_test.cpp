#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/noise.h"
#include "support/oom.h"
#include "support/sha.h"

using namespace support;
using testing::IsEmpty;
using testing::MatchesRegex;

static const char kModule[] = "util/veluuid";

static std::string take(char *text)
{
    EXPECT_NE(text, nullptr);
    const std::string result = text ? text : "";
    vel_free(text);
    return result;
}

/* The text of a UUID from bytes as they are drawn. */
static std::string uuid_of(std::string bytes)
{
    bytes[6] = static_cast<char>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<char>((bytes[8] & 0x3f) | 0x80);
    std::string text = hex(bytes);
    for (const size_t pos : {8u, 13u, 18u, 23u})
        text.insert(pos, "-");
    return text;
}

class Veluuid : public testing::Test {
  protected:
    ~Veluuid() override
    {
        vel_uuid_destroy(uuid_);
        vel_random_uninit();
    }

    /* Draws from a pool that gets the same noise as the others. */
    std::string drawn(size_t count)
    {
        velrandom *twin = vel_random_create();
        std::string bytes(count, '\0');
        EXPECT_EQ(vel_random_buffer(twin, bytes.data(), count), 0);
        vel_random_destroy(twin);
        return bytes;
    }

    log_capture log_;
    veluuid *uuid_ = vel_uuid_create();
};

TEST_F(Veluuid, HasItsFormVersionAndVariant)
{
    std::set<std::string> made;
    std::set<char> variants;
    for (int i = 0; i < 1000; i++) {
        const std::string text = take(vel_uuid_random(uuid_));
        ASSERT_THAT(text, MatchesRegex("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-"
                                       "[0-9a-f]{12}"));
        made.insert(text);
        variants.insert(text[19]);
    }
    EXPECT_EQ(made.size(), 1000u);
    EXPECT_EQ(variants, (std::set<char>{'8', '9', 'a', 'b'}));
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Veluuid, IsMadeOfTheBytesOfTheGlobalPool)
{
    noise noise;
    const std::string bytes = drawn(16 * 64);
    for (size_t i = 0; i < 64; i++)
        ASSERT_EQ(take(vel_uuid_random(uuid_)), uuid_of(bytes.substr(16 * i, 16)));
}

TEST_F(Veluuid, DrawsFromThePoolItIsGiven)
{
    noise noise;
    const std::string bytes = drawn(48);
    velrandom *random = vel_random_create();
    vel_uuid_set_random(uuid_, random);
    EXPECT_EQ(take(vel_uuid_random(uuid_)), uuid_of(bytes.substr(0, 16)));

    std::string next(16, '\0');
    EXPECT_EQ(vel_random_buffer(random, next.data(), next.size()), 0);
    EXPECT_EQ(hex(next), hex(bytes.substr(16, 16))) << "the pool went on by 16 bytes";

    vel_uuid_set_random(uuid_, nullptr);
    EXPECT_EQ(take(vel_uuid_random(uuid_)), uuid_of(bytes.substr(0, 16))) << "the global pool";
    EXPECT_EQ(vel_random_buffer(random, next.data(), next.size()), 0);
    EXPECT_EQ(hex(next), hex(bytes.substr(32))) << "the pool stayed where it was";
    vel_random_destroy(random);
}

TEST_F(Veluuid, PoolStaysItsOwners)
{
    velrandom *random = vel_random_create();
    veluuid *other = vel_uuid_create();
    vel_uuid_set_random(other, random);
    vel_uuid_destroy(other);
    unsigned char byte;
    EXPECT_EQ(vel_random_buffer(random, &byte, 1), 0);
    vel_random_destroy(random);
}

TEST_F(Veluuid, CreateNeedsMemory)
{
    const auto failures = allocfail_each(log_, [] {
        veluuid *uuid = vel_uuid_create();
        if (uuid)
            vel_uuid_destroy(uuid);
        return uuid != nullptr;
    });
    const log_line unable{kModule, 7, "unable to create uuid context"};
    EXPECT_EQ(failures, (std::vector<std::vector<log_line>>{{unable}}));
}

/* At first the global pool is created, of three blocks. */
TEST_F(Veluuid, MakingOneNeedsMemory)
{
    const auto failures = allocfail_lines(log_, [this] {
        char *text = vel_uuid_random(uuid_);
        const bool succeeded = text != nullptr;
        vel_free(text);
        return succeeded;
    });
    const log_line nobytes{kModule, 7, "vel_random_buffer() failed"};
    const log_line notext{kModule, 7, "not enough memory for UUID string"};
    ASSERT_GE(failures.size(), 4u);
    for (size_t i = 0; i < failures.size(); i++)
        EXPECT_EQ(failures[i], i < 3 ? nobytes : notext) << i;
}

static bool uuid_life()
{
    veluuid *uuid = vel_uuid_create();
    if (!uuid)
        return false;
    char *first = vel_uuid_random(uuid);
    velrandom *random = first ? vel_random_create() : nullptr;
    vel_uuid_set_random(uuid, random);
    char *second = random ? vel_uuid_random(uuid) : nullptr;
    const bool good = second != nullptr;
    vel_free(first);
    vel_free(second);
    if (random)
        vel_random_destroy(random);
    vel_uuid_destroy(uuid);
    vel_random_uninit();
    return good;
}

TEST(VeluuidOom, Life)
{
    vel_oom_drive(uuid_life);
}

TEST(VeluuidDeathTest, HandleIsAsserted)
{
    EXPECT_DEATH(vel_uuid_destroy(nullptr), asserts("veluuid != NULL", "vel_uuid_destroy"));
    EXPECT_DEATH(vel_uuid_set_random(nullptr, nullptr),
                 asserts("veluuid != NULL", "vel_uuid_set_random"));
    EXPECT_DEATH(vel_uuid_random(nullptr), asserts("veluuid != NULL", "vel_uuid_random"));
}
