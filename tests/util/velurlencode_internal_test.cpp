/* Each set of kernels beside the plain one, whose results velurlencode_test knows. */

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/textkernels.h"
#include "util/velurldecode_internal.h"
#include "util/velurlencode_internal.h"

struct filled {
    vel_error_t result;
    size_t len;
    std::string room; /* with what stands behind it */

    bool operator==(const filled &) const = default;
};

template <typename Fill> static filled fill(const std::string &source, size_t room, Fill function)
{
    const support::exact_block block(source);
    std::string dst(room, 'x');
    size_t len = room;
    const vel_error_t result =
        function(room ? dst.data() : nullptr, &len, block.data(), source.size());
    return {result, len, dst};
}

using VelurlKernels = support::textkernels_test;
INSTANTIATE_TEST_SUITE_P(All, VelurlKernels, testing::ValuesIn(support::usable_textkernels()),
                         support::textkernels_name);

/* Runs of bytes of one kind, as texts have them. */
static std::string runs(std::mt19937 &random, const std::vector<std::string> &kinds)
{
    std::string text;
    for (size_t run = random() % 6; run > 0; run--) {
        const std::string &kind = kinds[random() % kinds.size()];
        for (size_t times = random() % 80; times > 0; times--)
            text += kind.empty() ? std::string(1, static_cast<char>(random())) : kind;
    }
    return text;
}

TEST_P(VelurlKernels, Encode)
{
    const vel_textkernels *plain = &vel_textkernels_all().back();
    velurlencode *table = vel_urlencode_create();
    ASSERT_NE(table, nullptr);
    std::mt19937 random(7);
    for (int turn = 0; turn < 4000; turn++) {
        if (turn == 2000)
            vel_urlencode_skip(table, "/ \x80\xFF");
        const std::string source = runs(random, {"", "a", "/", "Zz", "\x80", "~ ", "\xFF"});
        const size_t room = random() % (3 * source.size() + 3);
        const auto with = [&](const vel_textkernels *kernels) {
            return fill(
                source, room, [&](char *dst, size_t *lenptr, const char *src, size_t srclen) {
                    return vel_urlencode_buffer_with(kernels, table, dst, lenptr, src, srclen);
                });
        };
        ASSERT_EQ(with(GetParam()), with(plain)) << source << " in " << room;
    }
    vel_urlencode_destroy(table);
}

TEST_P(VelurlKernels, Decode)
{
    const vel_textkernels *plain = &vel_textkernels_all().back();
    std::mt19937 random(8);
    for (int turn = 0; turn < 8000; turn++) {
        std::string source = runs(random, {"a", "+", "%41", "%aF", "\x80", "%fFz", "a%00"});
        if (random() % 3 == 0 && !source.empty())
            source[random() % source.size()] = "%gG0/:@`F"[random() % 9];
        source.resize(source.size() - random() % (source.size() < 3 ? 1 : 3));
        const size_t room = random() % (source.size() + 3);
        const auto with = [&](const vel_textkernels *kernels) {
            return fill(source, room,
                        [&](char *dst, size_t *lenptr, const char *src, size_t srclen) {
                            return vel_urldecode_buffer_with(kernels, dst, lenptr, src, srclen);
                        });
        };
        ASSERT_EQ(with(GetParam()), with(plain)) << source << " in " << room;
    }
}

/* A bad escape at every place of a text that fills whole steps. */
TEST_P(VelurlKernels, DecodeABadEscapeAnywhere)
{
    const vel_textkernels *plain = &vel_textkernels_all().back();
    for (size_t place = 0; place < 140; place++)
        for (const char *bad : {"%", "%4", "%4g", "%G4", "%%"})
            for (const std::string &rest : {std::string(), std::string(150, 'b')}) {
                const std::string source = std::string(place, 'a') + bad + rest;
                for (const size_t room : {size_t(0), place, place + 1, source.size() + 1}) {
                    const auto with = [&](const vel_textkernels *kernels) {
                        return fill(source, room,
                                    [&](char *dst, size_t *lenptr, const char *src, size_t srclen) {
                                        return vel_urldecode_buffer_with(kernels, dst, lenptr, src,
                                                                         srclen);
                                    });
                    };
                    ASSERT_EQ(with(GetParam()), with(plain)) << source << " in " << room;
                }
            }
}
