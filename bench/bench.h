#ifndef VELLIB_BENCH_BENCH_H
#define VELLIB_BENCH_BENCH_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
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

/* Who runs, and what. */
struct contender {
    const char *name;
    std::function<void()> run;
};

/* Prints a table of one row: the medians of contenders that take turns. Each is timed over so many
 * calls, which do so many things each. */
inline void measure(const char *unit, const char *row, const std::vector<contender> &contenders,
                    int rounds, size_t calls, double things)
{
    series series(contenders.size());
    for (int round = 0; round < rounds; round++)
        for (size_t i = 0; i < contenders.size(); i++)
            series.add(i, sample(calls, contenders[i].run) / things);

    std::vector<std::string> names;
    std::vector<double> medians;
    for (size_t i = 0; i < contenders.size(); i++) {
        names.push_back(contenders[i].name);
        medians.push_back(series.median(i));
    }
    print_header(unit, names);
    print_row(row, medians);
}

} // namespace bench

#endif
