#include <algorithm>
#include <random>
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
#include "support/randombytes.h"
#include "support/rows.h"
#include "support/sha.h"
#include "support/tempdir.h"

using namespace support;
using testing::ElementsAre;
using testing::IsEmpty;

static const char kModule[] = "crypto/velrandom";
static const char *const kProcFiles[] = {
    "/proc/interrupts",  "/proc/meminfo",    "/proc/net/rt_cache",
    "/proc/sched_debug", "/proc/self/sched", "/proc/timer_list",
};

/* The pool once more, the plainest way, with noise that the test hands it. */
class naive_pool {
  public:
    void add(const std::string &bytes)
    {
        for (const char byte : bytes) {
            pool_[addpos_++] ^= byte;
            if (addpos_ == 1024) {
                stir();
                addpos_ = 0;
            }
        }
    }

    std::string draw(size_t count, noise &noise)
    {
        std::string drawn;
        if (!seeded_)
            gather(noise);
        seeded_ = true;
        while (drawn.size() < count) {
            if (getpos_ == 1024)
                gather(noise);
            drawn.push_back(pool_[getpos_++]);
        }
        return drawn;
    }

  private:
    static std::string part(const noise &noise, const std::string &name, size_t maximum)
    {
        const auto found = noise.files.find(name);
        return found == noise.files.end() ? "" : found->second.substr(0, maximum);
    }

    void gather(noise &noise)
    {
        add(part(noise, "/dev/urandom", 256));
        add(std::string(reinterpret_cast<const char *>(&noise.time), 8));
        noise.time += noise.step;
        for (const char *name : kProcFiles)
            add(part(noise, name, 0x40000));
        if (!noise.timeofdayfails) {
            add(std::string(reinterpret_cast<const char *>(&noise.timeofday), 16));
            noise.timeofday.tv_usec += noise.step;
        }
        stir();
    }

    void stir()
    {
        sha_.update(pool_);
        sha_.finalize();
        std::string digest = sha_.digest();
        for (size_t block = 0; block < 1024; block += 32) {
            sha_.update(digest + pool_.substr(block, 32));
            digest = sha_.digest();
            for (size_t i = 0; i < 32; i++)
                pool_[block + i] ^= digest[i];
        }
        getpos_ = 0;
    }

    naive_sha<naive_sha256> sha_;
    std::string pool_ = std::string(1024, '\0');
    size_t addpos_ = 0;
    size_t getpos_ = 0;
    bool seeded_ = false;
};

/* Both pools get the same noise: the clocks are set back in between. */
class Velrandom : public testing::Test {
  protected:
    Velrandom()
    {
        noise_.files["/dev/urandom"] = seeded_bytes(400, 1);
        noise_.files["/proc/interrupts"] = seeded_bytes(3000, 2);
        noise_.files["/proc/meminfo"] = seeded_bytes(1500, 3);
        noise_.files["/proc/self/sched"] = seeded_bytes(700, 4);
        noise_.step = 7;
        log_.clear();
    }
    ~Velrandom() override
    {
        vel_random_destroy(random_);
        vel_random_uninit();
    }

    std::string draw(velrandom *random, size_t count)
    {
        std::string buffer(count + 4, '\x5a');
        EXPECT_EQ(vel_random_buffer(random, buffer.data(), count), 0);
        EXPECT_EQ(buffer.substr(count), std::string(4, '\x5a')) << "beyond the buffer";
        return buffer.substr(0, count);
    }
    std::string draw(size_t count)
    {
        return draw(random_, count);
    }

    /* The same draw from the naive pool. Call it before the draw, and the clocks are as before. */
    std::string expected(naive_pool &naive, size_t count)
    {
        const time_t time = noise_.time;
        const timeval timeofday = noise_.timeofday;
        const std::string bytes = naive.draw(count, noise_);
        noise_.time = time;
        noise_.timeofday = timeofday;
        return bytes;
    }
    std::string expected(size_t count)
    {
        return expected(naive_, count);
    }

    /* How many gatherings there were since the last question. */
    long gatherings()
    {
        const std::vector<std::string> events = noise_.take_events();
        return std::count(events.begin(), events.end(), "open /dev/urandom");
    }

    temporary_directory directory_;
    log_capture log_;
    noise noise_;
    velrandom *random_ = vel_random_create();
    naive_pool naive_;
};

/* Gathering. */

TEST_F(Velrandom, CreateGathersNothing)
{
    EXPECT_THAT(noise_.events, IsEmpty());
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Velrandom, FirstDrawGathersInOrder)
{
    draw(1);
    EXPECT_THAT(noise_.take_events(),
                ElementsAre("open /dev/urandom", "/dev/urandom: 256", "time",
                            "open /proc/interrupts", "/proc/interrupts: 3000", "open /proc/meminfo",
                            "/proc/meminfo: 1500", "open /proc/net/rt_cache",
                            "open /proc/sched_debug", "open /proc/self/sched",
                            "/proc/self/sched: 700", "open /proc/timer_list", "timeofday"));
    EXPECT_EQ(noise_.largestread, 1u);
    draw(1);
    EXPECT_THAT(noise_.events, IsEmpty());
    EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(Velrandom, DrawOfNothingGathersOnce)
{
    const std::string bytes = expected(10);
    draw(0);
    EXPECT_EQ(gatherings(), 1);
    draw(0);
    EXPECT_EQ(gatherings(), 0);
    EXPECT_EQ(hex(draw(10)), hex(bytes));
    EXPECT_EQ(gatherings(), 0);
}

TEST_F(Velrandom, EachPoolfulIsGatheredFor)
{
    const std::string bytes = expected(1025);
    EXPECT_EQ(draw(1024), bytes.substr(0, 1024));
    EXPECT_EQ(gatherings(), 1);
    draw(0);
    EXPECT_EQ(gatherings(), 0) << "nothing is asked for";
    EXPECT_EQ(draw(1), bytes.substr(1024));
    EXPECT_EQ(gatherings(), 1);
}

TEST_F(Velrandom, DrawOverThePoolfulGathersTwice)
{
    const std::string bytes = expected(1025);
    EXPECT_EQ(hex(draw(1025)), hex(bytes));
    EXPECT_EQ(gatherings(), 2);
}

TEST_F(Velrandom, LongDrawGathersForEachPoolful)
{
    const std::string bytes = expected(5 * 1024 + 3);
    EXPECT_EQ(hex(draw(5 * 1024 + 3)), hex(bytes));
    EXPECT_EQ(gatherings(), 6);
}

TEST_F(Velrandom, PiecesAreTheWhole)
{
    const std::string whole = expected(3000);
    std::string pieces;
    std::mt19937 random(6);
    while (pieces.size() < whole.size())
        pieces += draw(std::min<size_t>(random() % 100, whole.size() - pieces.size()));
    EXPECT_EQ(hex(pieces), hex(whole));
}

/* Sources of every kind, and without them. */

struct source_row {
    const char *name;
    size_t urandom; /* the length of the file; kMissing if it is not there */
    size_t proc[6];
    bool timeofdayfails;
    size_t read[7]; /* the length that is read of each */
};

static constexpr size_t kMissing = ~size_t{0};
static constexpr size_t kLimit = 262144;

static const source_row kSources[] = {
    {"All", 1000, {1, 2, 3, 4, 5, 6}, false, {256, 1, 2, 3, 4, 5, 6}},
    {"NoUrandom",
     kMissing,
     {100, 200, 300, 400, 500, 600},
     false,
     {0, 100, 200, 300, 400, 500, 600}},
    {"OnlyUrandom",
     256,
     {kMissing, kMissing, kMissing, kMissing, kMissing, kMissing},
     false,
     {256}},
    {"ShortUrandom",
     255,
     {kMissing, 9, kMissing, kMissing, kMissing, 9},
     false,
     {255, 0, 9, 0, 0, 0, 9}},
    {"OnlyClocks",
     kMissing,
     {kMissing, kMissing, kMissing, kMissing, kMissing, kMissing},
     false,
     {}},
    {"OnlyTime", kMissing, {kMissing, kMissing, kMissing, kMissing, kMissing, kMissing}, true, {}},
    {"EmptyFiles", 0, {0, 0, 0, 0, 0, 0}, false, {}},
    {"OneTurnOfTheRing", 256, {744, 0, 0, 0, 0, 0}, false, {256, 744}},
    {"OneTurnButForAByte", 256, {743, 0, 0, 0, 0, 0}, false, {256, 743}},
    {"TurnInTheTimeOfDay", 256, {750, 0, 0, 0, 0, 0}, false, {256, 750}},
    {"Limit", 256, {kLimit, 0, 0, 0, 0, 5}, false, {256, kLimit, 0, 0, 0, 0, 5}},
    {"OverTheLimit", 257, {0, 0, 0, 0, 0, kLimit + 1}, true, {256, 0, 0, 0, 0, 0, kLimit}},
};

class VelrandomSources : public Velrandom, public testing::WithParamInterface<source_row> {};
INSTANTIATE_TEST_SUITE_P(, VelrandomSources, testing::ValuesIn(kSources), row_name());

TEST_P(VelrandomSources, DrawsFromWhatThereIs)
{
    std::vector<std::string> closed;
    const auto provide = [&](const std::string &name, size_t length, size_t count) {
        if (length == kMissing)
            return;
        noise_.files[name] = seeded_bytes(length, static_cast<unsigned int>(length));
        closed.push_back(name + ": " + std::to_string(count));
    };
    noise_.files.clear();
    noise_.timeofdayfails = GetParam().timeofdayfails;
    provide("/dev/urandom", GetParam().urandom, GetParam().read[0]);
    for (size_t i = 0; i < 6; i++)
        provide(kProcFiles[i], GetParam().proc[i], GetParam().read[i + 1]);

    const std::string bytes = expected(1100);
    EXPECT_EQ(hex(draw(1024)), hex(bytes.substr(0, 1024)));
    std::vector<std::string> events = noise_.take_events();
    events.erase(std::remove_if(events.begin(), events.end(),
                                [](const std::string &event) {
                                    return event.find(": ") == std::string::npos;
                                }),
                 events.end());
    EXPECT_EQ(events, closed);
    EXPECT_EQ(hex(draw(76)), hex(bytes.substr(1024)));
    EXPECT_LE(noise_.largestread, 1u);
    EXPECT_THAT(log_.take(), IsEmpty());
}

/* Two pools. */

TEST_F(Velrandom, PoolsDifferByTheirClocksAlone)
{
    noise_.files.clear();
    velrandom *other = vel_random_create();
    EXPECT_NE(draw(64), draw(other, 64));
    vel_random_destroy(other);
}

TEST_F(Velrandom, PoolsDifferByOneByteOfNoiseAlone)
{
    noise_.step = 0;
    velrandom *same = vel_random_create();
    velrandom *other = vel_random_create();
    const std::string bytes = draw(64);
    EXPECT_EQ(draw(same, 64), bytes);
    noise_.files["/proc/meminfo"][1000] ^= 1;
    EXPECT_NE(draw(other, 64), bytes);
    vel_random_destroy(same);
    vel_random_destroy(other);
}

TEST(VelrandomSystem, DrawsFromTheSystem)
{
    std::set<std::string> drawn;
    for (int i = 0; i < 4; i++) {
        velrandom *random = vel_random_create();
        for (int turn = 0; turn < 3; turn++) {
            std::string buffer(1024, '\0');
            EXPECT_EQ(vel_random_buffer(random, buffer.data(), buffer.size()), 0);
            drawn.insert(buffer);
        }
        vel_random_destroy(random);
    }
    EXPECT_EQ(drawn.size(), 12u);
}

/* Numbers. */

TEST_F(Velrandom, FirstByteOfANumberIsTheMostSignificant)
{
    const std::string bytes = expected(4 * 300);
    for (size_t i = 0; i < 300; i++) {
        char digits[9];
        snprintf(digits, sizeof(digits), "%08x", vel_random_uint(random_));
        ASSERT_EQ(digits, hex(bytes.substr(4 * i, 4)));
    }
}

/* The storage file. */

struct storage_row {
    const char *name;
    size_t length;
    size_t read;
};

static const storage_row kStorage[] = {
    {"Empty", 0, 0},         {"OneByte", 1, 1},       {"OneMissing", 1023, 1023},
    {"Poolful", 1024, 1024}, {"OneMore", 1025, 1024}, {"FiveThousand", 5000, 1024},
};

class VelrandomStorage : public Velrandom, public testing::WithParamInterface<storage_row> {
  protected:
    void set_filename()
    {
        const std::string bytes = seeded_bytes(GetParam().length, 8);
        write_file("seed", bytes);
        noise_.take_events();
        EXPECT_EQ(vel_random_set_filename(random_, "seed"), 0);
        EXPECT_THAT(noise_.take_events(),
                    ElementsAre("open seed", "seed: " + std::to_string(GetParam().read)));
        EXPECT_LE(noise_.largestread, 1u);
        EXPECT_EQ(read_file("seed"), bytes);
        naive_.add(bytes.substr(0, 1024));
    }
};
INSTANTIATE_TEST_SUITE_P(, VelrandomStorage, testing::ValuesIn(kStorage), row_name());

TEST_P(VelrandomStorage, AddsToAFreshPool)
{
    set_filename();
    const std::string bytes = expected(2000);
    EXPECT_EQ(hex(draw(2000)), hex(bytes));
    EXPECT_EQ(gatherings(), 2) << "the file does not count as the first gathering";
}

TEST_P(VelrandomStorage, AddsToAPoolInUse)
{
    std::string bytes = expected(100);
    EXPECT_EQ(hex(draw(100)), hex(bytes));
    set_filename();
    bytes = expected(2000);
    EXPECT_EQ(hex(draw(2000)), hex(bytes));
}

TEST_F(Velrandom, MissingStorageFileIsNoError)
{
    EXPECT_EQ(vel_random_set_filename(random_, "missing"), 0);
    EXPECT_THAT(noise_.take_events(), ElementsAre("open missing"));
    EXPECT_THAT(log_.take(), IsEmpty());
    const std::string bytes = expected(10);
    EXPECT_EQ(draw(10), bytes);
}

TEST_F(Velrandom, StorageFileIsReplacedByAnother)
{
    for (const char *name : {"first", "second", "first", "missing", "second"}) {
        write_file("first", "1");
        write_file("second", "22");
        EXPECT_EQ(vel_random_set_filename(random_, name), 0);
        naive_.add(name[0] == 'f' ? "1" : name[0] == 's' ? "22" : "");
    }
    const std::string bytes = expected(10);
    EXPECT_EQ(draw(10), bytes);
}

/* Any order of calls. */
TEST_F(Velrandom, FollowsTheNaivePool)
{
    std::mt19937 random(9);
    for (auto &file : noise_.files)
        file.second.resize(100);
    for (int step = 0; step < 300; step++) {
        const size_t count = random() % (random() % 8 == 0 ? 2500 : 200);
        if (random() % 6 == 0) {
            const std::string content = seeded_bytes(count, static_cast<unsigned int>(step));
            write_file("seed", content);
            ASSERT_EQ(vel_random_set_filename(random_, "seed"), 0);
            naive_.add(content.substr(0, 1024));
            continue;
        }
        const std::string bytes = expected(count);
        ASSERT_EQ(hex(draw(count)), hex(bytes)) << step;
    }
}

/* The global pool. */

TEST_F(Velrandom, NullIsTheGlobalPool)
{
    naive_pool global;
    std::string bytes = expected(global, 100);
    EXPECT_EQ(hex(draw(nullptr, 100)), hex(bytes));
    EXPECT_EQ(gatherings(), 1);
    bytes = expected(global, 4);
    char digits[9];
    snprintf(digits, sizeof(digits), "%08x", vel_random_uint(nullptr));
    EXPECT_EQ(digits, hex(bytes));
    EXPECT_EQ(gatherings(), 0) << "it is the same pool";

    write_file("seed", "some");
    EXPECT_EQ(vel_random_set_filename(nullptr, "seed"), 0);
    global.add("some");
    bytes = expected(global, 2000);
    EXPECT_EQ(hex(draw(nullptr, 2000)), hex(bytes));
}

TEST_F(Velrandom, InitKeepsTheGlobalPool)
{
    naive_pool global;
    EXPECT_EQ(vel_random_init(), 0);
    EXPECT_THAT(noise_.events, IsEmpty());
    std::string bytes = expected(global, 10);
    EXPECT_EQ(draw(nullptr, 10), bytes);
    EXPECT_EQ(vel_random_init(), 0);
    bytes = expected(global, 10);
    EXPECT_EQ(draw(nullptr, 10), bytes);
    EXPECT_EQ(gatherings(), 1);
}

struct end_row {
    const char *name;
    void (*end)();
};

class VelrandomGlobalEnd : public Velrandom, public testing::WithParamInterface<end_row> {};
INSTANTIATE_TEST_SUITE_P(, VelrandomGlobalEnd,
                         testing::Values(end_row{"Random", vel_random_uninit},
                                         end_row{"Library", vel_uninit}),
                         row_name());

TEST_P(VelrandomGlobalEnd, NextUseBeginsAnew)
{
    for (int life = 0; life < 3; life++) {
        naive_pool global;
        const std::string bytes = expected(global, 10);
        EXPECT_EQ(draw(nullptr, 10), bytes);
        EXPECT_EQ(gatherings(), 1);
        GetParam().end();
        GetParam().end();
    }
}

TEST_P(VelrandomGlobalEnd, OtherPoolsStay)
{
    const std::string bytes = expected(20);
    EXPECT_EQ(draw(10), bytes.substr(0, 10));
    GetParam().end();
    EXPECT_EQ(draw(10), bytes.substr(10));
}

/* Memory. */

static const std::vector<log_line> kCreateLines = {
    {kModule, 7, "not enough memory for velrandom context"},
    {kModule, 7, "unable to create velsha256 module context"},
    {kModule, 7, "not enough memory for the random pool"},
};
static const log_line kInitLine{kModule, 7, "unable to initialize the global random context"};
static const log_line kGetLine{kModule, 7, "unable to get the global velrandom context"};

/* What is logged in this module when each of the allocations fails. */
template <typename Run>
static std::vector<std::vector<log_line>> failures_of(log_capture &log, Run run)
{
    std::vector<std::vector<log_line>> failures = allocfail_each(log, run);
    for (auto &lines : failures)
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const log_line &line) { return line.module != kModule; }),
                    lines.end());
    return failures;
}

/* The failures of create, with these lines after each of them. */
static std::vector<std::vector<log_line>> create_failures(const std::vector<log_line> &after)
{
    std::vector<std::vector<log_line>> failures;
    for (const log_line &line : kCreateLines) {
        failures.push_back({line});
        failures.back().insert(failures.back().end(), after.begin(), after.end());
    }
    return failures;
}

TEST_F(Velrandom, CreateNeedsMemory)
{
    EXPECT_EQ(failures_of(log_,
                          [] {
                              velrandom *random = vel_random_create();
                              if (random)
                                  vel_random_destroy(random);
                              return random != nullptr;
                          }),
              create_failures({}));
}

TEST_F(Velrandom, InitNeedsMemory)
{
    EXPECT_EQ(failures_of(log_,
                          [] {
                              const int result = vel_random_init();
                              EXPECT_TRUE(result == 0 || result == -1);
                              return result == 0;
                          }),
              create_failures({kInitLine}));
}

TEST_F(Velrandom, DrawFromTheGlobalPoolNeedsMemory)
{
    EXPECT_EQ(failures_of(log_,
                          [this] {
                              std::string buffer(8, 'x');
                              const int result = vel_random_buffer(nullptr, buffer.data(), 8);
                              if (result == 0)
                                  return true;
                              EXPECT_EQ(result, -1);
                              EXPECT_EQ(buffer, std::string(8, 'x'));
                              EXPECT_THAT(noise_.events, testing::Not(testing::Contains(
                                                             testing::StartsWith("open"))));
                              return false;
                          }),
              create_failures({kInitLine, kGetLine}));
}

TEST_F(Velrandom, NumberFromTheGlobalPoolNeedsMemory)
{
    const log_line failed{kModule, 7, "generating random integer failed"};
    EXPECT_EQ(failures_of(log_, [] { return vel_random_uint(nullptr) != 0xdeadbeef; }),
              create_failures({kInitLine, kGetLine, failed}));
}

TEST_F(Velrandom, StorageFileOfTheGlobalPoolNeedsMemory)
{
    auto failures = create_failures({kInitLine});
    failures.push_back(
        {{kModule, 7, "not enough memory for copying random storage file name 'seed'"}});
    EXPECT_EQ(failures_of(log_,
                          [] {
                              const int result = vel_random_set_filename(nullptr, "seed");
                              EXPECT_TRUE(result == 0 || result == -1);
                              return result == 0;
                          }),
              failures);
}

TEST_F(Velrandom, StorageFileIsNotReadWithoutMemoryForItsName)
{
    write_file("seed", "some");
    noise_.events.clear(); /* where the streams of C++ open by the same name */
    {
        const malloc_watch watch(1);
        EXPECT_EQ(vel_random_set_filename(random_, "seed"), -1);
    }
    EXPECT_THAT(noise_.events, testing::Not(testing::Contains("open seed")));
    noise_.time = 1000000000; /* the log looked */
    const std::string bytes = expected(10);
    EXPECT_EQ(draw(10), bytes);
}

static bool random_life()
{
    unsigned char buffer[1500];
    velrandom *random = vel_random_create();
    bool good = random && vel_random_set_filename(random, "seed") == 0 &&
                vel_random_set_filename(random, "other") == 0 &&
                vel_random_buffer(random, buffer, sizeof(buffer)) == 0 && vel_random_init() == 0 &&
                vel_random_set_filename(nullptr, "seed") == 0 &&
                vel_random_buffer(nullptr, buffer, sizeof(buffer)) == 0;
    if (random)
        vel_random_destroy(random);
    vel_random_uninit();
    if (good)
        good = vel_random_buffer(nullptr, buffer, sizeof(buffer)) == 0;
    vel_random_uninit();
    return good;
}

TEST(VelrandomOom, Life)
{
    vel_oom_drive(random_life);
}

/* Misuse. */

TEST(VelrandomDeathTest, DestroyDoesNotMeanTheGlobalPool)
{
    EXPECT_DEATH(vel_random_destroy(nullptr), asserts("velrandom != NULL", "vel_random_destroy"));
}

TEST(VelrandomDeathTest, BufferIsAsserted)
{
    EXPECT_DEATH(vel_random_buffer(nullptr, nullptr, 0),
                 asserts("buffer != NULL", "vel_random_buffer"));
}

TEST(VelrandomDeathTest, FilenameIsAsserted)
{
    EXPECT_DEATH(vel_random_set_filename(nullptr, nullptr),
                 asserts("filename != NULL", "vel_random_set_filename"));
}

TEST(VelrandomDeathTest, StorageFileThatCannotBeReadAborts)
{
    EXPECT_DEATH(vel_random_set_filename(nullptr, "/"),
                 asserts("count == 1", "vel_random_add_file"));
}
