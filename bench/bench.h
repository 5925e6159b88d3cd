#ifndef VELLIB_BENCH_BENCH_H
#define VELLIB_BENCH_BENCH_H

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <sys/resource.h>
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

    std::vector<double> medians() const
    {
        std::vector<double> all;
        for (size_t contender = 0; contender < samples_.size(); contender++)
            all.push_back(median(contender));
        return all;
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

/* The time of one thing, of which each call does so many. */
template <typename Run> inline double sample(size_t calls, size_t things, Run run)
{
    return sample(calls, run) / static_cast<double>(things);
}

/* So many rounds, in which the contenders take turns; sample_of measures one, by its number. Each
 * round has an order of its own, since whoever comes behind a slow one pays for it: the scheduler
 * takes the processor away from a thread that had it for long. */
template <typename Sample> inline series take_turns(size_t contenders, int rounds, Sample sample_of)
{
    series series(contenders);
    std::mt19937 random(1);
    std::vector<size_t> order(contenders);
    std::iota(order.begin(), order.end(), size_t{0});
    for (int round = 0; round < rounds; round++) {
        std::shuffle(order.begin(), order.end(), random);
        for (const size_t i : order)
            series.add(i, sample_of(i));
    }
    return series;
}

/* The names of contenders of any kind. */
template <typename Contenders>
inline std::vector<std::string> names_of(const Contenders &contenders)
{
    std::vector<std::string> names;
    for (const auto &contender : contenders)
        names.push_back(contender.name);
    return names;
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

inline void print_row(const std::string &name, const series &series)
{
    print_row(name, series.medians());
}

/* Prints one row: the medians of contenders that take turns. */
template <typename Sample>
inline void measure_row(const std::string &name, size_t contenders, int rounds, Sample sample_of)
{
    print_row(name, take_turns(contenders, rounds, sample_of));
}

/* Microseconds of the processor that this process has taken. */
inline double processor_time()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto us = [](const timeval &time) { return time.tv_sec * 1e6 + time.tv_usec; };
    return us(usage.ru_utime) + us(usage.ru_stime);
}

/* Prints one row of the wall clock and one of the processor time of this process, for one call of
 * run with the number of a contender, in units of so many microseconds. */
template <typename Run>
inline void measure_both_times(const std::string &name, size_t contenders, int rounds, size_t calls,
                               double unit, Run run)
{
    series wall(contenders), cpu(contenders);
    for (int round = 0; round < rounds; round++) {
        for (size_t i = 0; i < contenders; i++) {
            const double before = processor_time();
            wall.add(i, sample(calls, [&] { run(i); }) / 1000 / unit);
            cpu.add(i, (processor_time() - before) / static_cast<double>(calls) / unit);
        }
    }
    print_row(name, wall);
    print_row(name + ", processor time", cpu);
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
    print_header(unit, names_of(contenders));
    measure_row(row, contenders.size(), rounds,
                [&](size_t i) { return sample(calls, contenders[i].run) / things; });
}

} // namespace bench

#endif
