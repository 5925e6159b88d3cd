/* INI files that are edited by chance, beside a plain list of lines. */

#include <vellib/velinifile.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/inimodel.h"
#include "support/logcapture.h"
#include "support/tempdir.h"

using support::ini_model;

using name = ini_model::name;

namespace {

class random_ini {
  public:
    explicit random_ini(unsigned int seed) : random_(seed)
    {
    }
    size_t below(size_t limit)
    {
        return std::uniform_int_distribution<size_t>(0, limit - 1)(random_);
    }
    template <size_t Count> std::string one_of(const char *const (&texts)[Count])
    {
        return texts[below(Count)];
    }
    std::string space()
    {
        return below(3) ? "" : one_of({" ", "\t", "  ", " \v\f", "\r"});
    }
    std::string spaced(const std::string &text)
    {
        return space() + text + space();
    }
    std::string section()
    {
        return one_of({"s", "t", "u", "S", "", "a]b", "two words", "x=y"});
    }
    std::string key()
    {
        return one_of({"a", "b", "c", "A", "key", "[k", "two words", "a;b", "k1", "k2", "k3"});
    }
    std::string value()
    {
        return one_of({"", "1", "2", "x=y", "; no comment", "two words", "\xc3\xa4", "[v]"});
    }
    std::string line()
    {
        switch (below(8)) {
        case 0:
            return spaced("[" + spaced(section()) + "]");
        case 1:
            return space();
        case 2:
            return space() + one_of({";", "#", "; a=1", "#[s]"});
        default:
            return spaced(spaced(key()) + "=" + spaced(value()));
        }
    }
    std::string text(size_t lines)
    {
        std::string result;
        for (size_t i = 0; i < lines; i++)
            result += line() + one_of({"\n", "\n", "\r\n"});
        if (below(2))
            result += line();
        return result;
    }
    /* What an argument may be; sometimes with white space around it. */
    name section_argument()
    {
        if (below(5) == 0)
            return {};
        return below(8) ? section() : spaced(section());
    }
    std::string key_argument()
    {
        if (below(20) == 0)
            return one_of({"", " ", "=k", "a=b", "absent"});
        return below(4) ? key() : spaced(key());
    }

  private:
    std::mt19937 random_;
};

const char *c_str(const name &section)
{
    return section ? section->c_str() : nullptr;
}

class VelinifileModel : public testing::TestWithParam<unsigned int> {
  protected:
    ~VelinifileModel() override
    {
        if (inifile_)
            vel_inifile_destroy(inifile_);
    }
    std::string written()
    {
        unlink("out.ini"); /* writing over a file may wait for the disk */
        EXPECT_EQ(vel_inifile_write_file(inifile_, "out.ini"), VEL_ERROR_NONE);
        return support::read_file("out.ini");
    }
    void compare()
    {
        ASSERT_EQ(written(), model_.text());
        for (int i = 0; i < 6; i++) {
            const name section = random_.section_argument();
            const std::string key = random_.key_argument();
            const char *value = vel_inifile_get(inifile_, c_str(section), key.c_str());
            ASSERT_EQ(value ? name(value) : name(), model_.get(section, key))
                << "[" << section.value_or("NULL") << "] " << key;
        }
    }
    void step()
    {
        const name section = random_.section_argument();
        const std::string key = random_.key_argument();
        if (random_.below(4)) {
            const std::string value = random_.spaced(random_.value());
            ASSERT_EQ(vel_inifile_set(inifile_, c_str(section), key.c_str(), value.c_str()),
                      VEL_ERROR_NONE);
            model_.set(section, key, value);
        } else {
            unsigned int count = 77;
            vel_inifile_delete_all(inifile_, c_str(section), key.c_str(), &count);
            ASSERT_EQ(count, model_.delete_all(section, key));
        }
    }

    support::temporary_directory directory_;
    support::log_capture log_;
    random_ini random_{GetParam()};
    ini_model model_;
    velinifile *inifile_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(, VelinifileModel, testing::Range(1u, 41u));

class VelinifileLargeModel : public VelinifileModel {};
INSTANTIATE_TEST_SUITE_P(, VelinifileLargeModel, testing::Range(1u, 4u));

TEST_P(VelinifileModel, RandomEdits)
{
    const std::string text = random_.text(random_.below(40));
    ASSERT_EQ(model_.parse(text).number, 0u) << text;
    support::write_file("in.ini", text);
    vel_error_t error = -1;
    inifile_ = vel_inifile_create_from_file("in.ini", &error);
    ASSERT_EQ(error, VEL_ERROR_NONE) << text;
    compare();
    for (int i = 0; i < 100 && !HasFatalFailure(); i++) {
        step();
        if (!HasFatalFailure())
            compare();
    }
}

/* So many sections and keys that whatever finds them grows, and is full of holes again. */
TEST_P(VelinifileLargeModel, ManyKeys)
{
    const auto section = [&] { return "s" + std::to_string(random_.below(30)); };
    const auto key = [&] { return "k" + std::to_string(random_.below(40)); };
    inifile_ = vel_inifile_create(nullptr);
    ASSERT_NE(inifile_, nullptr);
    for (int i = 0; i < 3000; i++) {
        /* More and more lines at first, and then fewer and fewer. */
        const std::string ofsection = section(), ofkey = key();
        if (random_.below(3000) > static_cast<size_t>(i)) {
            const std::string value = std::to_string(i);
            ASSERT_EQ(vel_inifile_set(inifile_, ofsection.c_str(), ofkey.c_str(), value.c_str()),
                      VEL_ERROR_NONE);
            model_.set(ofsection, ofkey, value);
        } else {
            unsigned int count = 77;
            vel_inifile_delete_all(inifile_, ofsection.c_str(), ofkey.c_str(), &count);
            ASSERT_EQ(count, model_.delete_all(ofsection, ofkey));
        }
        const std::string other = section(), otherkey = key();
        const char *value = vel_inifile_get(inifile_, other.c_str(), otherkey.c_str());
        ASSERT_EQ(value ? name(value) : name(), model_.get(other, otherkey));
        if (i % 100 == 0) {
            ASSERT_EQ(written(), model_.text());
        }
    }
    EXPECT_EQ(written(), model_.text());
}

/* Faults, NUL bytes and lines longer than the buffer come in as well. */
TEST_P(VelinifileModel, RandomBytes)
{
    for (int i = 0; i < 60; i++) {
        std::string text;
        for (size_t pieces = random_.below(12); pieces > 0; pieces--) {
            text += random_.below(4) ? random_.line()
                                     : random_.one_of({"[", "]", "=", "a", ";", "\r", "[a]", "="});
            if (random_.below(12) == 0)
                text += '\0';
            if (random_.below(12) == 0)
                text += "=" + std::string(4060 + random_.below(60), 'v');
            text += random_.one_of({"\n", "\n", "\n", "\r\n", "", "="});
        }
        unlink("in.ini");
        support::write_file("in.ini", text);
        ini_model model;
        const ini_model::fault fault = model.parse(text);
        vel_error_t error = -1;
        inifile_ = vel_inifile_create_from_file("in.ini", &error);
        ASSERT_EQ(error, fault.number ? VEL_ERROR_INVALID_SYNTAX : VEL_ERROR_NONE)
            << testing::PrintToString(text);
        ASSERT_EQ(inifile_ == nullptr, fault.number != 0);
        std::vector<support::log_line> logged;
        if (fault.number)
            logged.push_back(
                {"util/velinifile", 6,
                 "Parse error at in.ini:" + std::to_string(fault.number) + ": " + fault.message});
        EXPECT_EQ(log_.take(), logged);
        if (!inifile_)
            continue;
        EXPECT_EQ(written(), model.text()) << testing::PrintToString(text);
        vel_inifile_destroy(inifile_);
        inifile_ = nullptr;
    }
}

/* An edited object and what a reader makes of its file agree. */
TEST_P(VelinifileModel, ReadAgain)
{
    const char *const keys[] = {"a", "b", "key", "two words", "=x"};
    inifile_ = vel_inifile_create(nullptr);
    for (int i = 0; i < 50; i++) {
        const name section = random_.below(5) ? name(random_.section()) : name();
        ASSERT_EQ(vel_inifile_set(inifile_, c_str(section), random_.one_of(keys).c_str(),
                                  random_.spaced(random_.value()).c_str()),
                  VEL_ERROR_NONE);
    }
    ASSERT_EQ(vel_inifile_write_file(inifile_, "out.ini"), VEL_ERROR_NONE);
    vel_error_t error = -1;
    velinifile *again = vel_inifile_create_from_file("out.ini", &error);
    ASSERT_EQ(error, VEL_ERROR_NONE);
    for (const char *section : {(const char *)nullptr, "s", "t", "u", "S", "", "a]b", "two words"})
        for (const char *key : keys)
            EXPECT_STREQ(vel_inifile_get(again, section, key),
                         vel_inifile_get(inifile_, section, key));
    vel_inifile_destroy(again);
}

/* Python's reader, of the files that both understand: it wants a section first. */
const char kScript[] = R"(
import configparser
parser = configparser.RawConfigParser(delimiters=('=',), strict=False, default_section='-')
parser.optionxform = str
with open('out.ini', encoding='utf-8', newline='\n') as file:
    parser.read_file(file)
with open('python.txt', 'w', encoding='utf-8', newline='\n') as out:
    for section in sorted(parser.sections()):
        for key, value in sorted(parser.items(section)):
            print(section, key, value, sep='|', file=out)
)";

TEST(VelinifilePython, ReadsWhatIsWritten)
{
    const support::temporary_directory directory;
    random_ini random(1);
    support::write_file("read.py", kScript);
    support::write_file("in.ini",
                        "; a comment\n[first]\n  k = 1\n# another\n[two]\n\n[first]\nm=2\n");
    velinifile *inifile = vel_inifile_create_from_file("in.ini", nullptr);
    ASSERT_NE(inifile, nullptr);
    for (int i = 0; i < 2000; i++) {
        const std::string section = random.one_of({"first", "two", "three", "a]b", "\xc3\xa4"});
        const std::string key = "k" + std::to_string(random.below(200));
        if (random.below(4))
            ASSERT_EQ(vel_inifile_set(inifile, section.c_str(), key.c_str(),
                                      random.spaced(random.value()).c_str()),
                      VEL_ERROR_NONE);
        else
            vel_inifile_delete_all(inifile, section.c_str(), key.c_str(), nullptr);
    }
    ASSERT_EQ(vel_inifile_write_file(inifile, "out.ini"), VEL_ERROR_NONE);
    ASSERT_EQ(system("python3 read.py"), 0);

    const std::string found = support::read_file("python.txt");
    size_t lines = 0;
    for (size_t at = 0; at < found.size(); lines++) {
        const size_t end = found.find('\n', at);
        const size_t first = found.find('|', at), second = found.find('|', first + 1);
        ASSERT_LT(second, end);
        const std::string section = found.substr(at, first - at);
        const std::string key = found.substr(first + 1, second - first - 1);
        const char *value = vel_inifile_get(inifile, section.c_str(), key.c_str());
        ASSERT_STREQ(value, found.substr(second + 1, end - second - 1).c_str())
            << section << " " << key;
        at = end + 1;
    }

    ini_model model;
    EXPECT_EQ(model.parse(support::read_file("out.ini")).number, 0u);
    size_t keys = 0; /* without what an earlier line hides */
    for (size_t i = 0; i < model.lines.size(); i++)
        if (model.lines[i].key) {
            keys++;
            for (size_t later = i + 1; later < model.lines.size(); later++)
                if (model.lines[later].is(model.lines[i].section, *model.lines[i].key)) {
                    keys--;
                    break;
                }
        }
    EXPECT_EQ(lines, keys);
    EXPECT_GT(lines, 300u);
    vel_inifile_destroy(inifile);
}

} // namespace
