#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/allocfail.h"
#include "support/assertion.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/randombytes.h"
#include "support/sha.h"

using namespace support;

struct sha1_twin {
    static constexpr char name[] = "sha1";
    static constexpr char initial[] = "67452301efcdab8998badcfe10325476c3d2e1f0";
    static constexpr size_t size = 20;
    using context = velsha1;
    using naive = naive_sha<naive_sha1>;
    static constexpr auto create = vel_sha1_create;
    static constexpr auto init = vel_sha1_init;
    static constexpr auto destroy = vel_sha1_destroy;
    static constexpr auto update = vel_sha1_update;
    static constexpr auto finalize = vel_sha1_finalize;
    static constexpr auto digest = vel_sha1_digest;
    static constexpr char handle[] = "velsha1 != NULL";
    static log_line nomemory()
    {
        return {"crypto/velsha1", 7, "not enough memory for SHA-1 context"};
    }
};

struct sha256_twin {
    static constexpr char name[] = "sha256";
    static constexpr char initial[] =
        "6a09e667bb67ae853c6ef372a54ff53a510e527f9b05688c1f83d9ab5be0cd19";
    static constexpr size_t size = 32;
    using context = velsha256;
    using naive = naive_sha<naive_sha256>;
    static constexpr auto create = vel_sha256_create;
    static constexpr auto init = vel_sha256_init;
    static constexpr auto destroy = vel_sha256_destroy;
    static constexpr auto update = vel_sha256_update;
    static constexpr auto finalize = vel_sha256_finalize;
    static constexpr auto digest = vel_sha256_digest;
    static constexpr char handle[] = "velsha256 != NULL";
    static log_line nomemory()
    {
        return {"crypto/velsha256", 7, "not enough memory for SHA256 context"};
    }
};

/* A context of the library under the interface of the naive one. */
template <typename Twin> class hasher {
  public:
    hasher() = default;
    ~hasher()
    {
        Twin::destroy(context_);
    }
    hasher(const hasher &) = delete;
    hasher &operator=(const hasher &) = delete;

    void init()
    {
        Twin::init(context_);
    }
    void update(const void *data, size_t count)
    {
        Twin::update(context_, data, count);
    }
    void update(const std::string &bytes)
    {
        update(bytes.data(), bytes.size());
    }
    void finalize()
    {
        Twin::finalize(context_);
    }
    /* What digest writes; it writes nothing beyond. */
    std::string digest()
    {
        std::string bytes(Twin::size + 8, '\x5a');
        Twin::digest(context_, reinterpret_cast<unsigned char *>(bytes.data()));
        EXPECT_EQ(bytes.substr(Twin::size), std::string(8, '\x5a'));
        return bytes.substr(0, Twin::size);
    }
    std::string hash()
    {
        finalize();
        return digest();
    }

  private:
    typename Twin::context *context_ = Twin::create();
};

template <typename Twin> static std::string naive_hash(const std::string &message)
{
    typename Twin::naive naive;
    naive.update(message);
    naive.finalize();
    return naive.digest();
}

template <typename Twin> class Velsha : public testing::Test {
  protected:
    hasher<Twin> sha;
};

struct twin_name {
    template <typename Twin> static std::string GetName(int)
    {
        return Twin::name;
    }
};

using twins = testing::Types<sha1_twin, sha256_twin>;
TYPED_TEST_SUITE(Velsha, twins, twin_name);

/* Messages with known hashes: the examples of the standard. */

struct example {
    std::string message, sha1, sha256;

    template <typename Twin> const std::string &hash() const
    {
        return Twin::size == 20 ? sha1 : sha256;
    }
};

static const example kExamples[] = {
    {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709",
     "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
    {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d",
     "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
     "84983e441c3bd26ebaae4aa1f95129e5e54670f1",
     "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
    {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
     "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
     "a49b2446a02c645bf419f995b67091253a04a259",
     "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
    {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f",
     "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
};

TYPED_TEST(Velsha, HashesTheExamplesInOneUpdate)
{
    for (const example &example : kExamples) {
        this->sha.init();
        this->sha.update(example.message);
        EXPECT_EQ(hex(this->sha.hash()), example.hash<TypeParam>());
    }
}

TYPED_TEST(Velsha, HashesTheExamplesByteByByte)
{
    for (const example &example : kExamples) {
        this->sha.init();
        for (const char &byte : example.message)
            this->sha.update(&byte, 1);
        EXPECT_EQ(hex(this->sha.hash()), example.hash<TypeParam>());
    }
}

/* The length of the message in bits takes more than 32 of them. */
TYPED_TEST(Velsha, CountsBeyondFourGibibits)
{
    const std::string part(1 << 20, '\0');
    for (int i = 0; i < 512; i++)
        this->sha.update(part);
    EXPECT_EQ(hex(this->sha.hash()),
              TypeParam::size == 20
                  ? "5b088492c9f4778f409b7ae61477dec124c99033"
                  : "9acca8e8c22201155389f65abbf6bc9723edc7384ead80503839f49dcc56d767");
}

/* The Monte Carlo test of the Secure Hash Algorithm Validation System, with the seeds of its
 * published vectors and their results number 0, 1 and 99. */
TYPED_TEST(Velsha, GoesThroughTheMonteCarloTest)
{
    const bool sha1 = TypeParam::size == 20;
    const auto message =
        sha1 ? std::string("\xdd\x4d\xf6\x44\xea\xf3\xd8\x5b\xac\xe2\xb2\x1a\xcc\xaa\x22\xb2"
                           "\x88\x21\xf5\xcd",
                           20)
             : std::string("\x6d\x1e\x72\xad\x03\xdd\xeb\x5d\xe8\x91\xe5\x72\xe2\x39\x6f\x8d"
                           "\xa0\x15\xd8\x99\xef\x0e\x79\x50\x31\x52\xd6\x01\x0a\x3f\xe6\x91",
                           32);
    std::vector<std::string> results;
    std::string seed = message;
    for (int count = 0; count < 100; count++) {
        std::string digests[3] = {seed, seed, seed};
        for (int i = 0; i < 1000; i++) {
            this->sha.init();
            this->sha.update(digests[0] + digests[1] + digests[2]);
            std::rotate(digests, digests + 1, digests + 3);
            digests[2] = this->sha.hash();
        }
        seed = digests[2];
        results.push_back(hex(seed));
    }
    EXPECT_EQ(results[0], sha1
                              ? "11f5c38b4479d4ad55cb69fadf62de0b036d5163"
                              : "e93c330ae5447738c8aa85d71a6c80f2a58381d05872d26bdd39f1fcd4f2b788");
    EXPECT_EQ(results[1], sha1
                              ? "5c26de848c21586bec36995809cb02d3677423d9"
                              : "2e78f8c8772ea7c9331d41ed3f9cdf27d8f514a99342ee766ee3b8b0d0b121c0");
    EXPECT_EQ(results[99],
              sha1 ? "01b7be5b70ef64843a03fdbb3b247a6278d2cbe1"
                   : "6a912ba4188391a78e6f13d88ed2d14e13afce9db6f7dcbf4a48c24f3db02778");
}

/* Cutting a message up. */

TYPED_TEST(Velsha, EveryLengthGivesTheSameInEverySplit)
{
    const std::string bytes = seeded_bytes(300);
    for (size_t length = 0; length <= bytes.size(); length++) {
        const std::string expected = naive_hash<TypeParam>(bytes.substr(0, length));
        for (size_t split = 0; split <= length; split++) {
            this->sha.init();
            this->sha.update(bytes.data(), split);
            this->sha.update(bytes.data() + split, length - split);
            ASSERT_EQ(hex(this->sha.hash()), hex(expected)) << split << " of " << length;
        }
    }
}

TYPED_TEST(Velsha, EveryLengthGivesTheSameByteByByte)
{
    const std::string bytes = seeded_bytes(300, 2);
    for (size_t length = 0; length <= bytes.size(); length++) {
        this->sha.init();
        for (size_t i = 0; i < length; i++)
            this->sha.update(bytes.data() + i, 1);
        ASSERT_EQ(hex(this->sha.hash()), hex(naive_hash<TypeParam>(bytes.substr(0, length))))
            << length;
    }
}

TYPED_TEST(Velsha, LongMessagesGiveTheSameInManyPieces)
{
    std::mt19937 random(3);
    for (unsigned int turn = 0; turn < 50; turn++) {
        const std::string bytes = seeded_bytes(random() % 5000, turn);
        this->sha.init();
        for (size_t pos = 0; pos < bytes.size();) {
            const size_t count = std::min<size_t>(bytes.size() - pos, random() % 400);
            this->sha.update(bytes.data() + pos, count);
            pos += count;
        }
        ASSERT_EQ(hex(this->sha.hash()), hex(naive_hash<TypeParam>(bytes))) << turn;
    }
}

TYPED_TEST(Velsha, UpdateWithNothingChangesNothing)
{
    const std::string bytes = seeded_bytes(129);
    for (size_t length = 0; length <= bytes.size(); length++) {
        this->sha.init();
        this->sha.update(nullptr, 0);
        this->sha.update(bytes.data(), length);
        const std::string state = this->sha.digest();
        this->sha.update(nullptr, 0);
        EXPECT_EQ(this->sha.digest(), state);
        ASSERT_EQ(hex(this->sha.hash()), hex(naive_hash<TypeParam>(bytes.substr(0, length))));
    }
}

TYPED_TEST(Velsha, ContextsStandAlone)
{
    hasher<TypeParam> other;
    this->sha.update("ab");
    other.update("xy");
    this->sha.update("c");
    EXPECT_EQ(other.hash(), naive_hash<TypeParam>("xy"));
    EXPECT_EQ(this->sha.hash(), naive_hash<TypeParam>("abc"));
}

/* The state that digest shows. */

TYPED_TEST(Velsha, DigestShowsTheInitialValueFirst)
{
    EXPECT_EQ(hex(this->sha.digest()), TypeParam::initial);
    this->sha.update(std::string(63, 'x'));
    EXPECT_EQ(hex(this->sha.digest()), TypeParam::initial) << "no block is full";
}

TYPED_TEST(Velsha, DigestShowsTheStateAfterEachBlock)
{
    const std::string bytes = seeded_bytes(64 * 20);
    typename TypeParam::naive naive;
    for (size_t pos = 0; pos < bytes.size(); pos += 64) {
        this->sha.update(bytes.data() + pos, 64);
        naive.update(bytes.substr(pos, 64));
        EXPECT_EQ(hex(this->sha.digest()), hex(naive.digest()));
        EXPECT_EQ(hex(this->sha.digest()), hex(naive.digest())) << "reading changes nothing";
    }
}

TYPED_TEST(Velsha, InitBeginsANewMessageAtAnyPoint)
{
    for (const size_t length : {0, 1, 63, 64, 65, 200}) {
        this->sha.update(std::string(length, 'x'));
        this->sha.init();
        EXPECT_EQ(hex(this->sha.digest()), TypeParam::initial);
        this->sha.update("abc");
        this->sha.finalize();
        EXPECT_EQ(this->sha.digest(), naive_hash<TypeParam>("abc"));
        this->sha.init();
        EXPECT_EQ(this->sha.hash(), naive_hash<TypeParam>(""));
    }
}

TYPED_TEST(Velsha, SecondFinalizeGivesSomethingElse)
{
    for (const size_t length : {0, 3, 55, 56, 63, 64}) {
        const std::string bytes = seeded_bytes(length);
        typename TypeParam::naive naive;
        naive.update(bytes);
        naive.finalize();
        naive.finalize();
        this->sha.init();
        this->sha.update(bytes);
        const std::string hash = this->sha.hash();
        EXPECT_EQ(this->sha.digest(), hash);
        const std::string second = this->sha.hash();
        EXPECT_NE(second, hash);
        EXPECT_EQ(second, naive.digest()) << length;
    }
}

TYPED_TEST(Velsha, UpdateAfterFinalizeGoesOn)
{
    const std::string bytes = seeded_bytes(200);
    for (size_t length = 0; length < 130; length++) {
        typename TypeParam::naive naive;
        this->sha.init();
        this->sha.update(bytes.data(), length);
        naive.update(bytes.substr(0, length));
        this->sha.finalize();
        naive.finalize();
        for (int turn = 0; turn < 3; turn++) {
            this->sha.update(bytes.data() + 20, 40);
            naive.update(bytes.substr(20, 40));
            ASSERT_EQ(hex(this->sha.digest()), hex(naive.digest())) << length;
        }
        this->sha.finalize();
        naive.finalize();
        ASSERT_EQ(hex(this->sha.digest()), hex(naive.digest())) << length;
    }
}

/* Any order of calls. */
TYPED_TEST(Velsha, FollowsTheNaiveContext)
{
    const std::string bytes = seeded_bytes(1000);
    std::mt19937 random(4);
    typename TypeParam::naive naive;
    for (int step = 0; step < 5000; step++) {
        const unsigned int choice = random() % 32;
        const size_t start = random() % 500;
        const size_t count = random() % (choice % 2 == 0 ? 40 : 400);
        if (choice == 0) {
            this->sha.init();
            naive.init();
        } else if (choice < 8) {
            this->sha.finalize();
            naive.finalize();
        } else {
            this->sha.update(bytes.data() + start, count);
            naive.update(bytes.substr(start, count));
        }
        ASSERT_EQ(hex(this->sha.digest()), hex(naive.digest())) << step;
    }
}

/* Memory, and misuse. */

TYPED_TEST(Velsha, CreateNeedsMemory)
{
    log_capture log;
    const auto failures = allocfail_lines(log, [] {
        auto *context = TypeParam::create();
        if (context)
            TypeParam::destroy(context);
        return context != nullptr;
    });
    EXPECT_EQ(failures, (std::vector<log_line>{TypeParam::nomemory()}));
}

template <typename Twin> static bool sha_life()
{
    auto *context = Twin::create();
    if (!context)
        return false;
    unsigned char digest[Twin::size];
    for (int message = 0; message < 2; message++) {
        Twin::init(context);
        Twin::update(context, "abc", 3);
        Twin::update(context, std::string(200, 'x').data(), 200);
        Twin::finalize(context);
        Twin::digest(context, digest);
    }
    EXPECT_EQ(std::string(reinterpret_cast<char *>(digest), sizeof(digest)),
              naive_hash<Twin>("abc" + std::string(200, 'x')));
    Twin::destroy(context);
    return true;
}

TYPED_TEST(Velsha, LifeNeedsMemory)
{
    EXPECT_GE(vel_oom_drive(sha_life<TypeParam>), 1u);
}

template <typename Twin> class VelshaDeathTest : public Velsha<Twin> {
};
TYPED_TEST_SUITE(VelshaDeathTest, twins, twin_name);

TYPED_TEST(VelshaDeathTest, EveryFunctionAssertsTheContext)
{
    const std::string prefix = std::string("vel_") + TypeParam::name;
    unsigned char digest[TypeParam::size] = {};
    EXPECT_DEATH(TypeParam::init(nullptr), asserts(TypeParam::handle, prefix + "_init"));
    EXPECT_DEATH(TypeParam::destroy(nullptr), asserts(TypeParam::handle, prefix + "_destroy"));
    EXPECT_DEATH(TypeParam::update(nullptr, "", 0), asserts(TypeParam::handle, prefix + "_update"));
    EXPECT_DEATH(TypeParam::finalize(nullptr), asserts(TypeParam::handle, prefix + "_finalize"));
    EXPECT_DEATH(TypeParam::digest(nullptr, digest),
                 asserts(TypeParam::handle, prefix + "_digest"));
    EXPECT_DEATH(TypeParam::digest(nullptr, nullptr), asserts(TypeParam::handle));
}

TYPED_TEST(VelshaDeathTest, DigestAssertsItsOutput)
{
    auto *context = TypeParam::create();
    EXPECT_DEATH(TypeParam::digest(context, nullptr),
                 asserts("digest != NULL", std::string("vel_") + TypeParam::name + "_digest"));
    TypeParam::destroy(context);
}

TYPED_TEST(VelshaDeathTest, TheBlockStepAssertsTheBlocks)
{
    auto *context = TypeParam::create();
    EXPECT_DEATH(
        TypeParam::update(context, nullptr, 64),
        asserts("chunk != NULL", std::string("vel_") + TypeParam::name + "_chunk_process"));
    TypeParam::destroy(context);
}
