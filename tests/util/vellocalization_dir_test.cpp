/* Directories whose order and whose failures the test chooses. */

#include <vellib/vellocalization.h>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/fakedirectory.h"
#include "support/potest.h"

using support::kGoodPo;
using support::log_line;
using support::no_language_line;
using support::write_file;

using log_lines = std::vector<log_line>;

static const char kModule[] = "util/vellocalization";

TEST_F(Vellocalization, FailureEndsTheWalk)
{
    for (const char *name : {"a", "c"})
        write_file(std::string("domain/") + name + ".po", kGoodPo);
    write_file("domain/b.po", "msgid \"a\"\nmsgstr \"y\"\nbad\nmsgid \"b\"\nmsgstr \"z\"\n");
    const support::fake_directory directory({"a.po", "b.po", "c.po"});
    EXPECT_EQ(load(), VEL_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(
        lines(),
        (log_lines{no_language_line("a"),
                   no_language_line("b"),
                   {kModule, 6, "unrecognized line 'bad' in ./domain/b.po line 3"},
                   {kModule, 7, "unable to load po file ./domain/b.po, error 209 (invalid syntax)"},
                   {kModule, 13,
                    "failed to load localization file ./domain/b.po, error 209 (invalid "
                    "syntax)"}}));
    EXPECT_EQ(languages(), "a/b");
    EXPECT_EQ(translation("a", "a"), "x");
    EXPECT_EQ(translation("b", "a"), "y");
    EXPECT_EQ(translation("b", "b"), std::nullopt);
    EXPECT_EQ(directory.names.size(), 1u) << "c.po is not reached";
}

TEST_F(Vellocalization, ReadErrorEndsTheWalkLikeItsEnd)
{
    for (const char *name : {"a", "b"})
        write_file(std::string("domain/") + name + ".po", kGoodPo);
    const support::fake_directory directory({".", "..", "a.po"}, EIO);
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{no_language_line("a")}));
    EXPECT_EQ(languages(), "a");
}

TEST_F(Vellocalization, ReadErrorAtOnceIsNoFailure)
{
    const support::fake_directory directory({}, EIO);
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{}));
}

TEST_F(Vellocalization, EntryThatHasGoneFails)
{
    for (const std::string name : {"gone.po", "gone.txt"}) {
        const support::fake_directory directory({name, "a.po"});
        EXPECT_EQ(load(), VEL_ERROR_GENERIC);
        EXPECT_EQ(lines(),
                  (log_lines{{kModule, 7, "error checking if '" + name + "' is a directory"}}));
    }
    EXPECT_EQ(languages(), "");
    log.clear();
}

/* A combining mark whose normal form is longer. */
TEST_F(Vellocalization, NameThatCannotBeConvertedFails)
{
    const support::fake_directory directory({"\xcd\x84.po", "a.po"});
    EXPECT_EQ(load(), VEL_ERROR_GENERIC);
    EXPECT_EQ(lines(), (log_lines{{kModule, 7, "fetching the directory entry name failed"}}));
}

TEST_F(Vellocalization, FileThatIsListedTwiceIsLoadedTwice)
{
    write_file("domain/a.po", kGoodPo);
    const support::fake_directory directory({"a.po", "a.po"});
    EXPECT_EQ(load(), VEL_ERROR_NONE);
    EXPECT_EQ(lines(), (log_lines{no_language_line("a")}));
    EXPECT_EQ(translation("a", "a"), "x");
}
