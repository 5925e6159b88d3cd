#ifndef TESTS_SUPPORT_ROWS_H
#define TESTS_SUPPORT_ROWS_H

#include <string>

#include <gtest/gtest.h>

namespace support {

/* Names an instance of a test after the field name of its row. */
struct row_name {
    template <typename Row> std::string operator()(const testing::TestParamInfo<Row> &row) const
    {
        return row.param.name;
    }
};

} // namespace support

#endif
