/* The log and the allocator, beside what they stand on and what others offer. */
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <glib.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "bench.h"

namespace {

const char kPath[] = "/tmp/vellib-bench.log";

template <void *(*allocate)(size_t), void (*release)(void *)> void allocation()
{
    void *block = allocate(48);
    bench::keep(block);
    release(block);
}

int number;

void dropped_vellib()
{
    VEL_LOG_AT(NULL, 13, "bench/log", __LINE__, "start growing hashtable to %d slots", number++);
}

/* What is left if the log did nothing but what it has to: its prefix and its text, once each. */
void dropped_snprintf()
{
    char prefix[64], text[256];
    snprintf(prefix, sizeof(prefix), "%s:%d[%d]", "bench/log", __LINE__, 13);
    snprintf(text, sizeof(text), "start growing hashtable to %d slots", number++);
    bench::keep(text);
}

void file_vellib()
{
    VEL_LOG_AT(NULL, 7, "bench/log", __LINE__, "request %d of %s took %d ms, %s", number++,
               "10.0.0.1", 17, "done");
}

std::unique_ptr<spdlog::logger> spd;

void file_spdlog()
{
    spd->info("{}:{}[{}] request {} of {} took {} ms, {}", "bench/log", __LINE__, 7, number++,
              "10.0.0.1", 17, "done");
}

FILE *glib_file;

void glib_write(const gchar *, GLogLevelFlags, const gchar *message, gpointer)
{
    GDateTime *now = g_date_time_new_now_local();
    gchar *stamp = g_date_time_format(now, "%Y-%m-%d %H:%M:%S");
    fprintf(glib_file, "%s %s\n", stamp, message);
    fflush(glib_file);
    g_free(stamp);
    g_date_time_unref(now);
}

void file_glib()
{
    g_log("bench", G_LOG_LEVEL_WARNING, "%s:%d[%d] request %d of %s took %d ms, %s", "bench/log",
          __LINE__, 7, number++, "10.0.0.1", 17, "done");
}

void row(const char *name, const std::vector<void (*)()> &contenders)
{
    bench::measure_row(name, contenders.size(), 101,
                       [&](size_t i) { return bench::sample(1000, contenders[i]); });
}

} // namespace

int main()
{
    vel_log_stderr_disable(nullptr);
    bench::print_header("ns", {"vellib", "malloc", "GLib"});
    row("allocate and free 48 bytes",
        {allocation<vel_malloc, vel_free>, allocation<malloc, free>, allocation<g_malloc, g_free>});
    bench::print_header("ns", {"vellib", "snprintf alone"});
    row("line that no sink wants", {dropped_vellib, dropped_snprintf});

    vel_log_logfile_set_filehandle(nullptr, fopen(kPath, "w"));
    vel_log_logfile_enable(nullptr);
    spd = std::make_unique<spdlog::logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_st>(kPath, true));
    spd->flush_on(spdlog::level::trace);
    glib_file = fopen(kPath, "w");
    g_log_set_handler("bench", G_LOG_LEVEL_MASK, glib_write, nullptr);
    bench::print_header("ns", {"vellib", "spdlog", "GLib"});
    row("line to a file, flushed", {file_vellib, file_spdlog, file_glib});
    remove(kPath);
    return 0;
}
