/* Much of what a pool gives out, looked at for what chance does not do. What is allowed lies eight
 * standard deviations around what is expected, where chance does not get in a lifetime of runs. */

#include "support/soak.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/tempdir.h"

namespace {

constexpr double kDeviations = 8;

using block = std::array<unsigned char, 16>;

/* The bytes are drawn once for all tests. */
class VelrandomSoak : public testing::Test {
  protected:
    static void SetUpTestSuite()
    {
        blocks_.resize(support::soak_length<size_t>(64 << 20, 1 << 20) / sizeof(block));
        velrandom *random = vel_random_create();
        ASSERT_NE(random, nullptr);
        EXPECT_EQ(vel_random_buffer(random, blocks_.data(), size()), 0);
        vel_random_destroy(random);
    }
    static void TearDownTestSuite()
    {
        blocks_.clear();
        blocks_.shrink_to_fit();
    }

    static size_t size()
    {
        return blocks_.size() * sizeof(block);
    }

    static inline std::vector<block> blocks_;
};

/* What the program ent says of the bytes. */
struct ent_figures {
    double count;   /* of samples */
    double entropy; /* in bits a sample */
    double chisquare;
    double mean;
    double pi;          /* by the Monte Carlo method */
    double correlation; /* of each sample with the next */
};

ent_figures ent(const std::string &options, const void *bytes, size_t size)
{
    const support::temporary_directory directory;
    FILE *pipe = popen(("ent -t " + options + " >figures").c_str(), "we");
    EXPECT_EQ(fwrite(bytes, 1, size, pipe), size);
    EXPECT_EQ(pclose(pipe), 0);

    ent_figures figures = {};
    FILE *file = fopen("figures", "re");
    if (!file)
        abort();
    EXPECT_EQ(fscanf(file, "%*[^\n] 1,%lf,%lf,%lf,%lf,%lf,%lf", &figures.count, &figures.entropy,
                     &figures.chisquare, &figures.mean, &figures.pi, &figures.correlation),
              6);
    fclose(file);
    return figures;
}

/* A chi-square of n degrees of freedom has the mean n and the variance 2 n, and leans to the
 * right. The entropy lies below its maximum by it, in other units. */
void expect_chance(const ent_figures &figures, double values)
{
    const double freedom = values - 1;
    const double chisquare = freedom + kDeviations * sqrt(2 * freedom) + kDeviations * kDeviations;
    EXPECT_LE(figures.chisquare, chisquare);
    EXPECT_GE(figures.entropy, log2(values) - chisquare / (2 * figures.count * log(2)) - 1e-6);

    const double variance = (values * values - 1) / 12;
    EXPECT_NEAR(figures.mean, freedom / 2, kDeviations * sqrt(variance / figures.count) + 1e-4);
    EXPECT_NEAR(figures.correlation, 0, kDeviations / sqrt(figures.count) + 1e-6);
}

TEST_F(VelrandomSoak, BytesLookLikeChance)
{
    const ent_figures figures = ent("", blocks_.data(), size());
    EXPECT_EQ(figures.count, static_cast<double>(size()));
    expect_chance(figures, 256);
    /* Spread as evenly as that, the bytes would be dealt and not drawn. */
    EXPECT_GE(figures.chisquare, 100);
    /* Of points in a square, six bytes each, one in pi quarters lies in the circle. */
    const double points = figures.count / 6, part = M_PI / 4;
    support::soak_report(size(), "bytes");
    EXPECT_NEAR(figures.pi, M_PI, 4 * kDeviations * sqrt(part * (1 - part) / points) + 1e-6);
}

TEST_F(VelrandomSoak, BitsLookLikeChance)
{
    const ent_figures figures = ent("-b", blocks_.data(), size());
    EXPECT_EQ(figures.count, 8 * static_cast<double>(size()));
    expect_chance(figures, 2);
}

/* Nothing of the pool is given out a second time. */
TEST_F(VelrandomSoak, NoSixteenBytesComeTwice)
{
    std::vector<block> sorted = blocks_;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
}

} // namespace
