#ifndef TESTS_SUPPORT_INIMODEL_H
#define TESTS_SUPPORT_INIMODEL_H

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace support {

/* An INI file as a list of lines that are walked from end to end for everything. */
class ini_model {
  public:
    using name = std::optional<std::string>;

    struct line {
        std::string raw;
        name section;
        name key;
        std::string value;

        bool is(const name &wantsection, const std::string &wantkey) const
        {
            return key == wantkey && section == wantsection;
        }
    };

    std::vector<line> lines;

    /* Where a text is wrong, and how; the number is 0 if it is right. */
    struct fault {
        size_t number = 0;
        std::string message;
    };

    /* Takes the lines of a text; those before a fault. */
    fault parse(const std::string &text)
    {
        name section;
        size_t number = 0;
        for (std::string &whole : split(text)) {
            number++;
            whole.erase(whole.find_last_not_of("\r\n") + 1);
            const size_t first = whole.find_first_not_of(kSpace);
            if (first == whole.npos || whole[first] == ';' || whole[first] == '#') {
                lines.push_back({whole, section, {}, strip(whole)});
                continue;
            }
            const size_t close = whole.rfind(']');
            if (whole[first] == '[' && close != whole.npos) {
                if (whole.find_first_not_of(kSpace, close + 1) != whole.npos)
                    return {number, "bogus characters after ']'"};
                section = strip(whole.substr(first + 1, close - first - 1));
                lines.push_back({whole, section, {}, strip(whole)});
                continue;
            }
            const size_t equals = whole.find('=', first + 1);
            if (equals == whole.npos)
                return {number, "no '=' found on non-empty non-comment line"};
            lines.push_back({whole.substr(first), section,
                             strip(whole.substr(first, equals - first)),
                             strip(whole.substr(equals + 1))});
        }
        return {};
    }

    std::string text() const
    {
        std::string result;
        for (const line &one : lines)
            result += one.raw + "\n";
        return result;
    }

    name get(const name &section, const std::string &key) const
    {
        for (size_t i = lines.size(); i-- > 0;)
            if (lines[i].is(section, key))
                return lines[i].value;
        return {};
    }

    void set(const name &section, const std::string &unstripped, const std::string &value)
    {
        const std::string key = strip(unstripped);
        for (size_t i = lines.size(); i-- > 0;) {
            if (!lines[i].is(section, key))
                continue;
            lines[i].value = strip(value);
            lines[i].raw = key + "=" + lines[i].value;
            return;
        }

        std::optional<size_t> place;
        for (size_t i = lines.size(); i-- > 0;) {
            if (lines[i].section != section)
                continue;
            place = i;
            if (lines[i].key)
                break;
        }
        const name own = section ? name(strip(*section)) : name();
        if (!place && section) {
            const std::string header = "[" + *section + "]";
            lines.push_back({header, own, {}, header});
            place = lines.size() - 1;
        }
        lines.insert(lines.begin() + (place ? static_cast<ptrdiff_t>(*place) + 1 : 0),
                     {key + "=" + value, own, key, strip(value)});
    }

    unsigned int delete_all(const name &section, const std::string &key)
    {
        return static_cast<unsigned int>(
            std::erase_if(lines, [&](const line &one) { return one.is(section, key); }));
    }

    static std::string strip(const std::string &text)
    {
        const size_t first = text.find_first_not_of(kSpace);
        if (first == text.npos)
            return "";
        return text.substr(first, text.find_last_not_of(kSpace) + 1 - first);
    }

  private:
    static constexpr const char *kSpace = " \t\n\v\f\r";

    /* The lines as C strings that are read piecemeal into a buffer that doubles: a NUL hides the
     * rest of the piece in which it stands, and also its line feed. */
    static std::vector<std::string> split(const std::string &text)
    {
        std::vector<std::string> result;
        size_t capacity = 4095;
        size_t at = 0;
        while (true) {
            std::string whole;
            bool ended = false;
            while (!ended) {
                if (capacity - whole.size() <= 1) {
                    capacity *= 2;
                    continue;
                }
                if (at == text.size()) {
                    if (!whole.empty())
                        result.push_back(whole);
                    return result;
                }
                size_t end = text.find('\n', at);
                end = end == text.npos ? text.size() : end + 1;
                end = std::min(end, at + capacity - whole.size() - 1);
                whole += text.substr(at, end - at).c_str();
                at = end;
                ended = whole.ends_with('\n');
            }
            result.push_back(whole);
        }
    }
};

} // namespace support

#endif
