#ifndef TESTS_SUPPORT_LOGCAPTURE_H
#define TESTS_SUPPORT_LOGCAPTURE_H

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

namespace support {

/* One line of the default log, as a reader of a log file sees it. */
struct log_line {
    std::string module; /* "adt/velcache"; empty where the line has no prefix */
    int level;
    std::string text;

    bool operator==(const log_line &) const = default;
};

std::ostream &operator<<(std::ostream &out, const log_line &line);

/* Takes all lines of the default log, at every level, while it lives; the standard error sink is
 * off meanwhile. Afterwards the default log is as new. One at a time. */
class log_capture {
  public:
    log_capture();
    ~log_capture();
    log_capture(const log_capture &) = delete;
    log_capture &operator=(const log_capture &) = delete;

    /* The lines since the beginning, or since the last call of take or clear. */
    std::vector<log_line> take();

    /* The same, without those of modules whose names do not begin with this. */
    std::vector<log_line> take_from(const std::string &module);
    void clear();

  private:
    char *text_ = nullptr;
    size_t length_ = 0;
    size_t taken_ = 0;
};

} // namespace support

#endif
