/* Messages whose length takes more than 32 bits to count in bytes, beside the programs that every
 * system has. */

#include "support/soak.h"

#include <algorithm>
#include <string>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/sha.h"

namespace {

/* One byte more than fits 32 bits at full length. */
size_t message_length()
{
    return support::soak_length<size_t>((size_t{1} << 32) + 1, (size_t{1} << 26) + 1);
}

/* Zeros that take no memory: all pages are the same one. */
class zeros {
  public:
    explicit zeros(size_t length)
        : length_(length), bytes_(mmap(nullptr, length, PROT_READ,
                                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        EXPECT_NE(bytes_, MAP_FAILED);
    }
    ~zeros()
    {
        EXPECT_EQ(munmap(bytes_, length_), 0);
    }
    zeros(const zeros &) = delete;
    zeros &operator=(const zeros &) = delete;

    const void *bytes() const
    {
        return bytes_;
    }

  private:
    size_t length_;
    void *bytes_;
};

struct sha1_twin {
    static constexpr char program[] = "sha1sum";
    static constexpr size_t size = 20;
    static constexpr auto create = vel_sha1_create;
    static constexpr auto destroy = vel_sha1_destroy;
    static constexpr auto update = vel_sha1_update;
    static constexpr auto finalize = vel_sha1_finalize;
    static constexpr auto digest = vel_sha1_digest;
};

struct sha256_twin {
    static constexpr char program[] = "sha256sum";
    static constexpr size_t size = 32;
    static constexpr auto create = vel_sha256_create;
    static constexpr auto destroy = vel_sha256_destroy;
    static constexpr auto update = vel_sha256_update;
    static constexpr auto finalize = vel_sha256_finalize;
    static constexpr auto digest = vel_sha256_digest;
};

/* The digest of so many zeros, taken in by pieces of this size. */
template <typename Twin> std::string digest(const zeros &message, size_t length, size_t piece)
{
    auto *context = Twin::create();
    auto *bytes = static_cast<const char *>(message.bytes());
    for (size_t pos = 0; pos < length; pos += piece)
        Twin::update(context, bytes + pos, std::min(piece, length - pos));
    Twin::finalize(context);
    std::string digest(Twin::size, '\0');
    Twin::digest(context, reinterpret_cast<unsigned char *>(digest.data()));
    Twin::destroy(context);
    return support::hex(digest);
}

/* The digest that the program gives, which gets them through a pipe. */
template <typename Twin> std::string program_digest(size_t length)
{
    const std::string command =
        "head -c " + std::to_string(length) + " /dev/zero | " + Twin::program;
    FILE *pipe = popen(command.c_str(), "re");
    char digest[2 * Twin::size + 1] = "";
    EXPECT_NE(fgets(digest, sizeof digest, pipe), nullptr);
    while (fgetc(pipe) != EOF)
        continue;
    EXPECT_EQ(pclose(pipe), 0);
    return digest;
}

template <typename Twin> class VelshaSoak : public testing::Test {
};

struct twin_name {
    template <typename Twin> static std::string GetName(int)
    {
        return Twin::program;
    }
};

using twins = testing::Types<sha1_twin, sha256_twin>;
TYPED_TEST_SUITE(VelshaSoak, twins, twin_name);

TYPED_TEST(VelshaSoak, FourGibibytesAndOneByte)
{
    const size_t length = message_length();
    const zeros message(length);
    const std::string expected = program_digest<TypeParam>(length);
    EXPECT_EQ(digest<TypeParam>(message, length, length), expected) << "in one update";
    EXPECT_EQ(digest<TypeParam>(message, length, 65537), expected) << "in pieces";
    support::soak_report(length, "bytes, in one update and in pieces");
}

} // namespace
