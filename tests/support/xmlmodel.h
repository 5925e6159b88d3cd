#ifndef TESTS_SUPPORT_XMLMODEL_H
#define TESTS_SUPPORT_XMLMODEL_H

/* The XML reader's state machine, read plainly from its tables: one call a level, siblings in a
 * vector, an abort as an exception. */

#include <optional>
#include <string>
#include <vector>

namespace support {

struct xml_node {
    std::vector<xml_node> children;
    size_t tagstart = 0, taglen = 0;
    size_t attributestart = 0, attributelen = 0;
    size_t valuestart = 0, valuelen = 0;
};

class xml_model {
  public:
    explicit xml_model(std::string text) : text_(std::move(text))
    {
        try {
            result = parse_level(roots);
        } catch (const abort_at &assertion) {
            aborted = assertion.expression;
        }
        if (result != 0)
            roots.clear();
    }

    std::string tag(const xml_node &node) const
    {
        return text_.substr(node.tagstart, node.taglen);
    }

    std::string value(const xml_node &node) const
    {
        return text_.substr(node.valuestart, node.valuelen);
    }

    std::string output() const
    {
        return output_level(roots, 0);
    }

    int result = -1;
    std::string aborted; /* the expression of the assertion that fails, or empty */
    std::vector<std::string> lines;
    std::vector<xml_node> roots;

  private:
    struct abort_at {
        std::string expression;
    };

    struct level {
        std::vector<xml_node> &nodes;
        std::optional<xml_node> node;
        int tagstate = 0;
        int valuestate = 0;
        size_t endtagstart = 0;
        int result = -1;
    };

    bool stop(const std::string &line)
    {
        lines.push_back(line);
        return false;
    }

    static void check(bool holds, const char *expression)
    {
        if (!holds)
            throw abort_at{expression};
    }

    int parse_level(std::vector<xml_node> &nodes)
    {
        level at{nodes, {}};
        while (pos_ < text_.size()) {
            if (!at.node)
                at.node.emplace();
            if (!step(at))
                break;
        }
        if (pos_ >= text_.size()) {
            if (at.tagstate == 0)
                at.result = 0;
            else
                stop("XML ended unexpectedly, tagstate " + std::to_string(at.tagstate));
        }
        if (at.node)
            nodes.push_back(*at.node);
        return at.result;
    }

    /* One character, or one child; false where the loop is left. */
    bool step(level &at)
    {
        const char character = text_[pos_];
        if (character == '<')
            return open(at);
        if (character == '>')
            return close(at);
        if (character == ' ' && at.tagstate == 1) {
            at.node->taglen = pos_ - at.node->tagstart;
            at.node->attributestart = pos_ + 1;
            at.tagstate = 2;
        } else if (!other(at, character)) {
            return false;
        }
        pos_++;
        return true;
    }

    bool open(level &at)
    {
        if (at.valuestate == 1) {
            at.node->valuelen = pos_ - at.node->valuestart;
            at.valuestate = 2;
        }
        if (at.tagstate != 0 && at.tagstate != 3 && at.tagstate != 5)
            return stop("unexpected '<', tagstate " + std::to_string(at.tagstate));
        if (pos_ + 1 == text_.size())
            return stop("xml too short to finish this tag");
        if (text_[pos_ + 1] == '/')
            return open_end(at);
        if (at.tagstate != 0) {
            at.node->children.clear();
            at.result = parse_level(at.node->children);
            return at.result == 0;
        }
        at.node->tagstart = pos_ + 1;
        at.tagstate = 1;
        pos_++;
        return true;
    }

    bool open_end(level &at)
    {
        if (at.tagstate == 3) {
            check(at.endtagstart == 0, "endtagstart == 0");
            at.tagstate = 4;
            at.endtagstart = pos_ + 2;
            pos_++;
            return true;
        }
        if (at.tagstate == 0) {
            check(at.node->children.empty(), "velxmlnode->children == NULL");
            check(at.node->tagstart == 0, "velxmlnode->tagstart == 0");
            check(at.node->taglen == 0, "velxmlnode->taglen == 0");
            check(at.node->attributestart == 0, "velxmlnode->attributestart == 0");
            check(at.node->attributelen == 0, "velxmlnode->attributelen == 0");
            check(at.node->valuestart == 0, "velxmlnode->valuestart == 0");
            check(at.node->valuelen == 0, "velxmlnode->valuelen == 0");
            at.node.reset();
        }
        at.result = 0;
        return false;
    }

    bool close(level &at)
    {
        if (at.tagstate != 1 && at.tagstate != 2 && at.tagstate != 4)
            return stop("unexpected '>', tagstate " + std::to_string(at.tagstate));
        if (at.valuestate == 1)
            return stop("unexpected value state 1");
        const char before = text_[pos_ - 1];
        const size_t end = before == '?' ? pos_ - 1 : pos_;
        if (at.tagstate == 2) {
            check(at.node->attributestart > 0, "velxmlnode->attributestart > 0");
            at.node->attributelen = end - at.node->attributestart;
        }
        if (at.tagstate == 1)
            at.node->taglen = end - at.node->tagstart;
        if (at.tagstate == 4 && !compare_end(at, end))
            return false;
        at.tagstate = at.tagstate == 4 || before == '?' || before == '/' ? 5 : 3;
        if (at.tagstate == 5) {
            at.nodes.push_back(*at.node);
            at.node.reset();
            at.tagstate = at.valuestate = 0;
            at.endtagstart = 0;
        }
        pos_++;
        return true;
    }

    bool compare_end(level &at, size_t end)
    {
        const size_t length = end - at.endtagstart;
        if (length != at.node->taglen)
            return stop("end tag len " + std::to_string(length) + " != start tag len " +
                        std::to_string(at.node->taglen));
        if (text_.compare(at.endtagstart, length, tag(*at.node)) != 0)
            return stop("end tag does not match with start tag");
        return true;
    }

    bool other(level &at, char character)
    {
        if (at.tagstate == 1 || at.tagstate == 2 || at.tagstate == 4 || at.valuestate == 1)
            return true;
        const bool space = character == ' ' || character == '\r' || character == '\n';
        if (at.valuestate == 0) {
            if (!space) {
                at.node->valuestart = pos_;
                at.valuestate = 1;
            }
            return true;
        }
        if (at.tagstate == 3)
            return space;
        return stop("tagstate " + std::to_string(at.tagstate) + ", valuestate " +
                    std::to_string(at.valuestate));
    }

    std::string output_level(const std::vector<xml_node> &nodes, size_t indent) const
    {
        const std::string blanks(2 * indent, ' ');
        std::string out;
        for (const xml_node &node : nodes) {
            const std::string name = tag(node);
            out += blanks + "<" + name;
            if (node.attributelen != 0)
                out += " " + text_.substr(node.attributestart, node.attributelen);
            if (node.valuelen != 0 || !node.children.empty()) {
                out += ">\n";
                if (node.valuelen != 0)
                    out += blanks + "  " + value(node) + "\n";
                out += output_level(node.children, indent + 1);
                out += blanks + "</" + name;
            } else {
                out += name.empty() ? '?' : name[0];
            }
            out += ">\n";
        }
        return out;
    }

    const std::string text_;
    size_t pos_ = 0;
};

} // namespace support

#endif
