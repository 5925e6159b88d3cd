#include "support/logcapture.h"

#include <cstdlib>
#include <regex>
#include <sstream>

#include <vellib/vellog.h>

namespace support {

std::ostream &operator<<(std::ostream &out, const log_line &line)
{
    return out << line.module << "[" << line.level << "] " << line.text;
}

log_capture::log_capture()
{
    vel_log_stderr_disable(nullptr);
    vel_log_logfile_set_filehandle(nullptr, open_memstream(&text_, &length_));
    vel_log_logfile_set_level(nullptr, 16);
    vel_log_logfile_enable(nullptr);
}

log_capture::~log_capture()
{
    vel_log_uninit(); /* closes the stream */
    free(text_);
}

/* A message may hold line feeds, so a line goes on until the next time stamp. Only the head of a line
 * is matched: std::regex takes stack for each character, and a path may have thousands. */
std::vector<log_line> log_capture::take()
{
    static const std::regex stamp(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d )");
    static const std::regex prefix(R"(([a-z0-9_./]+):\d+\[(-?\d+)\] )");
    const auto atstart = std::regex_constants::match_continuous;

    std::vector<std::string> messages;
    std::istringstream in(std::string(text_ + taken_, length_ - taken_));
    taken_ = length_;
    for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (std::regex_search(line, match, stamp, atstart))
            messages.push_back(match.suffix());
        else if (!messages.empty())
            messages.back() += "\n" + line;
    }

    std::vector<log_line> lines;
    for (const std::string &message : messages) {
        std::smatch match;
        if (std::regex_search(message, match, prefix, atstart))
            lines.push_back({match[1], std::stoi(match[2]), match.suffix()});
        else
            lines.push_back({"", 0, message});
    }
    return lines;
}

std::vector<log_line> log_capture::take_from(const std::string &module)
{
    std::vector<log_line> lines = take();
    std::erase_if(lines, [&](const log_line &line) { return !line.module.starts_with(module); });
    return lines;
}

void log_capture::clear()
{
    taken_ = length_;
}

} // namespace support
