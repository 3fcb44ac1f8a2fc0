// The example of docs/formats/m4.md.
#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;

const bytes block = bytes_of("0e1e2e3e4e5e6e7e8e9e"
                             "0e1e2e3e4e5e6e7e8e9e"
                             "0e1e2e3e4e5e6e7e8e9e"
                             "!4e5e6e");

struct example {
    u8 lit_ctx_bits;
    bytes stream;
};
const example examples[]{
    {8, {0x30, 0x00, 0x59, 0xEC, 0xE4, 0x35, 0x1D, 0x52, 0x3E, 0x7A, 0x5C,
         0x49, 0x37, 0xF2, 0x77, 0x31, 0x48, 0xFF, 0xF8, 0x7E, 0x97, 0xF1,
         0xFA, 0xC3, 0x14, 0xB9, 0x53, 0x6D, 0x65, 0x92, 0x00}},
    {0, {0x30, 0x00, 0x59, 0xEC, 0x9E, 0x7F, 0x96, 0x19, 0x4A, 0x2B, 0x4A, 0x8B, 0x0C, 0xD2,
         0xE4, 0x5D, 0x32, 0xA2, 0x9C, 0xCA, 0x1A, 0xC3, 0x6E, 0xA2, 0x7E, 0x2C, 0x00}},
};

codec_parameters parameters_of(u8 level, u8 lit_ctx_bits)
{
    codec_parameters parameters = test::parameters_of(4, level, 12);
    parameters.lit_ctx_bits = lit_ctx_bits;
    return parameters;
}

TEST(m4_format_page, its_examples_are_what_the_encoders_make)
{
    for (const auto& [lit_ctx_bits, stream] : examples) {
        for (u8 level = 0; level <= 7; ++level) {
            EXPECT_EQ(test::encode(block, parameters_of(level, lit_ctx_bits)), stream)
                << int{lit_ctx_bits} << " bits, level " << int{level};
        }
    }
}

TEST(m4_format_page, its_examples_are_decoded)
{
    for (const auto& [lit_ctx_bits, stream] : examples) {
        EXPECT_EQ(test::decode(stream, block.size(), parameters_of(0, lit_ctx_bits)), block)
            << int{lit_ctx_bits} << " bits";
    }
}

} // namespace
} // namespace quarnex
