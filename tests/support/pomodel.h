#ifndef TESTS_SUPPORT_POMODEL_H
#define TESTS_SUPPORT_POMODEL_H

/* The catalogue format, read plainly. */

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <vellib/velerror.h>

#include "support/logcapture.h"

namespace support {

struct po_result {
    vel_error_t error = VEL_ERROR_NONE;
    std::map<std::string, std::string> translations;
    std::vector<log_line> lines;

    bool operator==(const po_result &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const po_result &result)
{
    out << "error " << result.error;
    for (const auto &[key, value] : result.translations)
        out << "\n'" << key << "': '" << value << "'";
    for (const log_line &line : result.lines)
        out << "\nlog " << line;
    return out;
}

/* A string as it stands in a file, without its quotes and its backslashes. */
inline std::string po_decode(std::string text)
{
    if (text.starts_with("\"")) {
        if (text.size() > 1 && text.ends_with("\""))
            text.pop_back();
        text.erase(0, 1);
    }
    std::string decoded;
    for (size_t position = 0; position < text.size(); position++) {
        if (text[position] == '\\' && ++position == text.size())
            break;
        decoded += text[position];
    }
    return decoded;
}

/* The lines that a buffer of a given size makes of a file. */
inline std::vector<std::string> po_lines(const std::string &content, size_t bufferlen)
{
    std::vector<std::string> lines;
    for (size_t position = 0; position < content.size();) {
        std::string line = content.substr(position, bufferlen - 1);
        line = line.substr(0, line.find('\n') + 1 ? line.find('\n') + 1 : line.size());
        position += line.size();
        line = line.c_str();
        if (line.ends_with("\n"))
            line.pop_back();
        if (line.ends_with("\r"))
            line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

inline po_result po_read(const std::string &content, size_t bufferlen, const std::string &path)
{
    po_result result;
    std::optional<std::string> msgid, msgstr;
    const std::vector<std::string> lines = po_lines(content, bufferlen);
    for (size_t number = 1; number <= lines.size(); number++) {
        const std::string &line = lines[number - 1];
        const auto complain = [&](const std::string &text) {
            result.lines.push_back({"util/vellocalization", 6,
                                    text + " in " + path + " line " + std::to_string(number)});
            result.error = VEL_ERROR_INVALID_SYNTAX;
        };
        if (line.empty() || line[0] == '#')
            continue;
        if (line[0] == '"') {
            if (!msgid)
                complain("a continuation line without preceeding msgid");
            else
                (msgstr ? *msgstr : *msgid) += po_decode(line);
            continue;
        }
        if (msgstr) {
            result.translations[*msgid] = *msgstr;
            msgid = msgstr = std::nullopt;
        }
        if (line.starts_with("msgid "))
            msgid = po_decode(line.substr(6));
        else if (!line.starts_with("msgstr "))
            complain("unrecognized line '" + line + "'");
        else if (msgid)
            msgstr = po_decode(line.substr(7));
        else
            complain("msgstr without preceeding msgid");
    }
    if (result.error == VEL_ERROR_NONE && msgstr)
        result.translations[*msgid] = *msgstr;
    return result;
}

} // namespace support

#endif
