#include <csetjmp>
#include <csignal>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/fdcapture.h"
#include "support/xmlmodel.h"
#include "support/xmltree.h"

using namespace support;
using testing::IsEmpty;

extern "C" {
void __lsan_disable(void) __attribute__((weak));
void __lsan_enable(void) __attribute__((weak));
}

/* Lets what an abort leaves behind be, where the build looks for leaks. */
static void expect_leaks(bool expected)
{
    if (expected && __lsan_disable)
        __lsan_disable();
    else if (!expected && __lsan_enable)
        __lsan_enable();
}

/* The lines of the default log, without their time and line number. The capture of the other tests
 * is too slow for this many. */
class plain_log {
  public:
    plain_log()
    {
        vel_log_stderr_disable(nullptr);
        vel_log_logfile_set_filehandle(nullptr, open_memstream(&text_, &length_));
        vel_log_logfile_set_level(nullptr, 16);
        vel_log_logfile_enable(nullptr);
    }
    ~plain_log()
    {
        vel_log_uninit();
        free(text_);
    }
    plain_log(const plain_log &) = delete;
    plain_log &operator=(const plain_log &) = delete;

    std::vector<std::string> take()
    {
        static const char module[] = " adt/velxml:";
        std::vector<std::string> lines;
        while (taken_ < length_) {
            const char *begin = text_ + taken_;
            const char *end = strchr(begin, '\n');
            taken_ = static_cast<size_t>(end + 1 - text_);
            std::string line(begin, end);
            if (line.compare(19, strlen(module), module) == 0)
                line = line.substr(line.find('['));
            lines.push_back(line);
        }
        return lines;
    }

  private:
    char *text_ = nullptr;
    size_t length_ = 0;
    size_t taken_ = 0;
};

static sigjmp_buf aborting;

static void leave_abort(int)
{
    siglongjmp(aborting, 1);
}

constexpr int kAborted = -2;

/* Parses a text in this process, also one that aborts: then the result is -2, and the document is
 * lost with what it had. */
static int parse_or_abort(velxml *volatile *xmlptr, const char *text)
{
    volatile int result = kAborted;
    struct sigaction action = {}, saved;
    action.sa_handler = leave_abort;
    sigaction(SIGABRT, &action, &saved);
    if (sigsetjmp(aborting, 1) == 0) {
        *xmlptr = vel_xml_create();
        result = vel_xml_parse(*xmlptr, text);
    }
    sigaction(SIGABRT, &saved, nullptr);
    return result;
}

/* The same where an abort is expected; gives what was printed. */
static std::string parse_and_abort(const char *text)
{
    velxml *volatile xml = nullptr;
    fd_capture errors(2);
    expect_leaks(true);
    EXPECT_EQ(parse_or_abort(&xml, text), kAborted);
    expect_leaks(false);
    return errors.stop();
}

class VelxmlModel : public testing::Test {
  protected:
    void run(const std::string &text)
    {
        const xml_model model(text);
        std::vector<std::string> expected;
        for (const std::string &line : model.lines)
            expected.push_back("[6] " + line);

        if (!model.aborted.empty()) {
            EXPECT_THAT(parse_and_abort(text.c_str()),
                        testing::HasSubstr("(" + model.aborted + ")"));
            EXPECT_EQ(log.take(), expected);
            aborts.insert(model.aborted);
            return;
        }
        velxml *volatile xml = nullptr;
        const int result = parse_or_abort(&xml, text.c_str());
        EXPECT_EQ(result, model.result);
        EXPECT_EQ(log.take(), expected);
        if (result == kAborted)
            return;
        if (result == model.result)
            compare_tree(xml, model);
        vel_xml_destroy(xml);
        EXPECT_THAT(log.take(), IsEmpty());
        note(model);
    }

    void compare_tree(velxml *xml, const xml_model &model)
    {
        if (model.roots.empty()) {
            EXPECT_TRUE(xml_is_empty(xml));
            return;
        }
        EXPECT_EQ(xml_output(xml), model.output());
        copy = nullptr;
        compare_level(xml, model, model.roots, {});
    }

    struct item {
        std::string name;
        unsigned int occurrence;
    };

    /* Looks up every node by its name and occurrence, and one occurrence too many. */
    void compare_level(velxml *xml, const xml_model &model, const std::vector<xml_node> &nodes,
                       std::vector<item> path)
    {
        ASSERT_LT(path.size(), 16u);
        std::map<std::string, unsigned int> counts;
        for (const xml_node &node : nodes) {
            const std::string tag = model.tag(node);
            path.push_back({tag + "#", counts[tag]++});
            compare_node(xml, model, node, path);
            compare_level(xml, model, node.children, path);
            path.pop_back();
        }
        for (const auto &[tag, count] : counts) {
            path.push_back({tag + "#", count});
            EXPECT_EQ(query(xml, path), kXmlMissing);
            path.pop_back();
        }
    }

    void compare_node(velxml *xml, const xml_model &model, const xml_node &node,
                      const std::vector<item> &path)
    {
        EXPECT_EQ(query(xml, path), 0);
        if (node.valuelen == 0) {
            EXPECT_EQ(value, nullptr);
            EXPECT_EQ(length, 0u);
            return;
        }
        EXPECT_EQ(std::string(value, length), model.value(node));
        if (copy) {
            EXPECT_EQ(value, copy + node.valuestart);
        }
        copy = value - node.valuestart;
    }

    int query(velxml *xml, const std::vector<item> &path)
    {
        const char *names[16] = {};
        unsigned int numbers[16] = {};
        for (size_t i = 0; i < path.size(); i++) {
            names[i] = path[i].name.c_str();
            numbers[i] = path[i].occurrence;
        }
        value = "dirt";
        length = 77;
        return vel_xml_query_value_const(
            xml, &value, &length, names[0], numbers[0], names[1], numbers[1], names[2], numbers[2],
            names[3], numbers[3], names[4], numbers[4], names[5], numbers[5], names[6], numbers[6],
            names[7], numbers[7], names[8], numbers[8], names[9], numbers[9], names[10],
            numbers[10], names[11], numbers[11], names[12], numbers[12], names[13], numbers[13],
            names[14], numbers[14], static_cast<char *>(nullptr));
    }

    void note(const xml_model &model)
    {
        for (const std::string &line : model.lines)
            seen.insert(line.substr(0, line.find_first_of("0123456789")));
        keptwithline += model.result == 0 && !model.lines.empty();
        silent += model.result == -1 && model.lines.empty();
        trees += model.result == 0 && !model.roots.empty() && !model.roots[0].children.empty();
    }

    size_t pick(size_t count)
    {
        return random() % count;
    }

    std::string random_letters()
    {
        static const char letters[] = "<>/?= ab\"\n\t\r";
        std::string out;
        for (size_t left = pick(25); left > 0; left--)
            out.push_back(letters[pick(strlen(letters))]);
        return out;
    }

    std::string random_pieces()
    {
        static const char *const pieces[] = {"<a>", "<b>", "</a>", "</b>", "<a/>", "<b a=\"b\">",
                                             " ",   "\n",  "\r",   "a",    "\t",   "<?a b?>",
                                             "<>",  "</>", "<",    ">",    "</a",  "<b",
                                             "<a ", "<a>", "</a>"};
        std::string out;
        for (size_t left = pick(14); left > 0; left--)
            out += pieces[pick(std::size(pieces))];
        return out;
    }

    /* A document as it is meant, of a few levels. */
    std::string random_element(size_t depth)
    {
        const std::string name = pick(2) ? "a" : "b";
        std::string out = "<" + name + (pick(4) ? "" : " b=\"a\"") + ">";
        if (pick(2))
            out += pick(2) ? "a b " : "\nb\n";
        for (size_t left = depth > 0 ? pick(4) : 0; left > 0; left--)
            out += random_element(depth - 1) + (pick(3) ? "" : "\n ");
        return pick(6) ? out + "</" + name + ">" : out.substr(0, out.find('>')) + "/>";
    }

    std::string random_damaged()
    {
        static const char letters[] = "<>/?= ab\"\n\t\r";
        std::string out = random_element(3);
        for (size_t left = pick(3); left > 0 && !out.empty(); left--) {
            const size_t at = pick(out.size());
            if (pick(2))
                out.erase(at, 1 + pick(3));
            else
                out.insert(at, 1, letters[pick(strlen(letters))]);
        }
        return out;
    }

    std::mt19937 random{20261121};
    plain_log log;
    const char *value = nullptr;
    size_t length = 0;
    const char *copy = nullptr;   /* the document's copy, as the first value showed it */
    std::set<std::string> aborts; /* their expressions */
    std::set<std::string> seen;   /* lines, up to their first number */
    int keptwithline = 0, silent = 0, trees = 0;
};

TEST_F(VelxmlModel, AgreesOnRandomTexts)
{
    for (int i = 0; i < 100000; i++) {
        const std::string input = i % 4 == 0   ? random_letters()
                                  : i % 4 == 1 ? random_damaged()
                                               : random_pieces();
        run(input);
        ASSERT_FALSE(HasFailure()) << "text " << i << ": " << testing::PrintToString(input);
    }
    EXPECT_THAT(seen,
                testing::IsSupersetOf({"unexpected '<', tagstate ", "unexpected '>', tagstate ",
                                       "xml too short to finish this tag", "end tag len ",
                                       "end tag does not match with start tag",
                                       "XML ended unexpectedly, tagstate "}));
    EXPECT_THAT(aborts,
                testing::ElementsAre("velxmlnode->valuelen == 0", "velxmlnode->valuestart == 0"));
    EXPECT_GT(keptwithline, 1000);
    EXPECT_GT(silent, 100);
    EXPECT_GT(trees, 5000);
}
