#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/jsontest.h"
#include "support/logcapture.h"

using namespace support;

/* Documents share nothing, so each thread may have its own. */
static std::string work(int number)
{
    std::string texts;
    json_document document, copy("{}");
    for (int i = 0; i < 100; i++) {
        const std::string blanks(i % 2 * 20000, ' '); /* a long text is kept in another way */
        const std::string text =
            blanks + "{\"n\":[" + std::to_string(number + i) + ",2.5,\"a\\n\\u00e4\"]}";
        EXPECT_EQ(vel_json_parse(document, text.c_str()), 0);
        EXPECT_EQ(vel_json_node_copy(copy, copy.root(), document), VEL_ERROR_NONE);
        int value = 0;
        EXPECT_EQ(vel_json_fetch_int(copy, &value, "n", "#", 0ul, nullptr), 0);
        EXPECT_EQ(value, number + i);
        texts += copy.output();
    }
    return texts;
}

TEST(VeljsonThread, EachHasADocumentOfItsOwn)
{
    ASSERT_EQ(vel_log_init_threaded(), 0); /* the documents share the log */
    log_capture log;
    std::vector<std::string> texts(4);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < texts.size(); i++)
        threads.emplace_back([&texts, i] { texts[i] = work(static_cast<int>(i)); });
    for (std::thread &thread : threads)
        thread.join();
    for (size_t i = 0; i < texts.size(); i++)
        EXPECT_EQ(texts[i], work(static_cast<int>(i)));
}
