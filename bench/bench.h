#ifndef VELLIB_BENCH_BENCH_H
#define VELLIB_BENCH_BENCH_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

/* What the benchmarks share: contenders run interleaved in one process, so that a slow moment of
 * the machine meets all of them, and the table shows each one's median and how many times the
 * library is as fast. Only the ratios mean anything on another machine. */
namespace bench {

using clock = std::chrono::steady_clock;

inline double nanoseconds(clock::duration duration)
{
    return std::chrono::duration<double, std::nano>(duration).count();
}

/* Keeps the compiler from leaving out what computes value. */
template <typename Value> inline void keep(const Value &value)
{
    asm volatile("" : : "g"(value) : "memory");
}

/* One case: the samples of each contender, the library first. */
class series {
  public:
    explicit series(size_t contenders) : samples_(contenders)
    {
    }

    void add(size_t contender, double sample)
    {
        samples_[contender].push_back(sample);
    }

    double median(size_t contender) const
    {
        std::vector<double> sorted = samples_[contender];
        auto middle = sorted.begin() + static_cast<ptrdiff_t>(sorted.size() / 2);
        std::nth_element(sorted.begin(), middle, sorted.end());
        return *middle;
    }

    double lowest(size_t contender) const
    {
        return *std::min_element(samples_[contender].begin(), samples_[contender].end());
    }

  private:
    std::vector<std::vector<double>> samples_;
};

inline void print_header(const char *unit, const std::vector<std::string> &contenders)
{
    printf("%-24s", unit);
    for (const std::string &contender : contenders)
        printf(" %16s", contender.c_str());
    printf("\n");
}

/* One row: values, and behind those of the peers how many times the library is as fast. */
inline void print_row(const std::string &name, const std::vector<double> &values)
{
    printf("%-24s %16.4g", name.c_str(), values[0]);
    for (size_t i = 1; i < values.size(); i++)
        printf(" %8.4g (%4.3gx)", values[i], values[i] / values[0]);
    printf("\n");
    fflush(stdout);
}

} // namespace bench

#endif
