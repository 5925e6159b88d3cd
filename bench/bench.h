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

/* The time of one call of run, over as many calls as make a sample long enough for the clock. */
template <typename Run> inline double sample(size_t calls, Run run)
{
    const auto start = clock::now();
    for (size_t i = 0; i < calls; i++)
        run();
    return nanoseconds(clock::now() - start) / static_cast<double>(calls);
}

/* What is printed is tab-separated, for tools/bench.py to lay out: a header begins a table. */
inline void print_header(const char *unit, const std::vector<std::string> &contenders)
{
    printf("# %s", unit);
    for (const std::string &contender : contenders)
        printf("\t%s", contender.c_str());
    printf("\n");
}

/* One row: a value for each contender, smaller being better; 0 where a contender has none. */
inline void print_row(const std::string &name, const std::vector<double> &values)
{
    printf("%s", name.c_str());
    for (const double value : values)
        printf("\t%.6g", value);
    printf("\n");
    fflush(stdout);
}

} // namespace bench

#endif
