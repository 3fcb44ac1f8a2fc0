// The examples of docs/formats/m2.md.
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
const bytes stream{0x30, 0xB2, 0xCC, 0x6C, 0xB3, 0x2B, 0x2C, 0xCE, 0xCB, 0x34,
                   0xB2, 0xCD, 0x6C, 0xB3, 0x6B, 0x2C, 0xDE, 0xCB, 0x38, 0xB2,
                   0xCE, 0x6C, 0xA0, 0xA4, 0x27, 0x21, 0x20, 0xA8, 0x3C};
/// At levels 8 and 9, with the literals as a run.
const bytes stream_with_a_literal_run{0x30, 0x1C, 0x21, 0x94, 0xC5, 0x94, 0xC9, 0x94, 0xCD, 0x94,
                                      0xD1, 0x94, 0xD5, 0x94, 0xD9, 0x94, 0xDD, 0x94, 0xE1, 0x94,
                                      0xE5, 0x94, 0x14, 0x84, 0xE4, 0x25, 0x15, 0x07, 0x80};
const bytes stream_of_a_byte_run{0x7A, 0x1A, 0xF4, 0x15, 0x1E};

TEST(m2_format_page, its_example_is_what_the_encoders_make)
{
    for (u8 level = 0; level <= 7; ++level) {
        EXPECT_EQ(test::encode(block, parameters_of(2, level, 12)), stream) << int{level};
    }
}

TEST(m2_format_page, its_example_is_decoded)
{
    EXPECT_EQ(test::decode(stream, block.size(), parameters_of(2, 0)), block);
}

TEST(m2_format_page, its_runs_are_decoded)
{
    EXPECT_EQ(test::decode(stream_with_a_literal_run, block.size(), parameters_of(2, 8)), block);
    EXPECT_EQ(test::decode(stream_of_a_byte_run, 21, parameters_of(2, 0)), bytes(21, 'z'));
}

} // namespace
} // namespace quarnex
