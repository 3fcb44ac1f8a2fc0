// The example of docs/formats/m3.md.
#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::parameters_of;

const bytes block = bytes_of("0e1e2e3e4e5e6e7e8e9e"
                             "0e1e2e3e4e5e6e7e8e9e"
                             "0e1e2e3e4e5e6e7e8e9e"
                             "!4e5e6e");
const bytes stream{0x30, 0x9A, 0xCE, 0x9A, 0xCD, 0x9A, 0xCC, 0x9A, 0xCB, 0x9A, 0xCA, 0x9A, 0xC9,
                   0x9A, 0xC8, 0x9A, 0xC7, 0xF8, 0xCB, 0xF5, 0x97, 0x76, 0x22, 0x82, 0x44};

TEST(m3_format_page, its_example_is_what_the_encoders_make)
{
    for (u8 level = 0; level <= 7; ++level) {
        EXPECT_EQ(test::encode(block, parameters_of(3, level, 12)), stream) << int{level};
    }
}

TEST(m3_format_page, its_example_is_decoded)
{
    EXPECT_EQ(test::decode(stream, block.size(), parameters_of(3, 0)), block);
}

} // namespace
} // namespace quarnex
