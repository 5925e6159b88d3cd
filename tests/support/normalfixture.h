#ifndef TESTS_SUPPORT_NORMALFIXTURE_H
#define TESTS_SUPPORT_NORMALFIXTURE_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/velmalloc.h>

#include "io/velnormalform_internal.h"
#include "io/velutf8dir_internal.h"
#include "support/logcapture.h"
#include "support/normaltest.h"
#include "support/utf8model.h"

namespace support {

/* Normal form C of names, and of any text. */
class normal_fixture : public testing::Test {
  protected:
    void TearDown() override
    {
        EXPECT_EQ(log.take(), (std::vector<log_line>{}));
    }

    /* The text in normal form, or nothing where it does not fit in as many bytes. */
    std::optional<std::string> convert(const std::string &text)
    {
        char *converted = vel_utf8dir_nfd_to_nfc(text.c_str());
        if (!converted) {
            EXPECT_EQ(log.take(), (std::vector<log_line>{{"io/velutf8dir", 7,
                                                          "unable to convert NFD string to NFC"}}));
            return {};
        }
        EXPECT_NE(converted, text.c_str());
        std::string result = converted;
        vel_free(converted);
        return result;
    }

    /* The normal form is this, unless it is longer than the text. */
    void expect(const std::string &text, const std::string &normal)
    {
        const std::optional<std::string> converted = convert(text);
        if (normal.size() > text.size())
            EXPECT_EQ(converted, std::nullopt) << in_hex(text);
        else if (converted != normal)
            ADD_FAILURE() << in_hex(text) << " gives " << in_hex(converted.value_or("nothing"))
                          << " and not " << in_hex(normal);
    }

    /* Whether compose gives this in so much room, and writes nothing behind it. */
    static std::optional<std::string> compose(const std::string &text, size_t room)
    {
        const std::unique_ptr<char[]> dest(new char[room]);
        size_t length = 77;
        if (!vel_normalform_compose(text.data(), text.size(), dest.get(), room, &length)) {
            EXPECT_EQ(length, 0u);
            return {};
        }
        return std::string(dest.get(), length);
    }

    log_capture log;
};

} // namespace support

#endif
