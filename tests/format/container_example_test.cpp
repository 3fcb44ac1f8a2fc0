// The example of docs/formats/container.md, byte by byte.
#include "format/container.h"

#include "support/program_fixture.h"

namespace quarnex::test {
namespace {

const bytes example_text = bytes_of("abcdabcdzzzzzzzzzzzzzzzzzzzzz");

/// The file example.txt, compressed by "-12 -p0".
const bytes example_image{
    0x00, 'Q',  'R',  '0',                          // magic
    0x1D, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // original size: 29
    0x01, 0x02, 0x00, 0x00,                         // method 1, level 2, zeros
    0x08, 0x00, 0x20, 0x00,                         // 8 context bits, no filter, blocks of 32 MiB
    0x12, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, // hash_bits 18, chain_bits 1
    0x00, 0x00, 0x00, 0x00,                         // zeros
    0x0F, 0x00, 0x00, 0x00, 0x00,                   // 15 bytes of payload, displacement 0
    'a',                                            // payload, a stream of method 1
    0x00, 0x00, 0x00, 0x16,                         // three literals, match, literal, match, end
    'b',  'c',  'd',                                // literals
    0x06, 0x00,                                     // 4 bytes from distance 4
    'z',                                            // literal
    0x43, 0x01,                                     // 20 bytes from distance 1
    0xEB, 0x00,                                     // the end token
};

using container_example = program_fixture;

TEST_F(container_example, is_written)
{
    put("example.txt", example_text);
    expect_silent_success(run({"-12", "-p0", "example.txt", "out"}));
    EXPECT_EQ(get("out/example.txt.qrx"), example_image);
}

TEST_F(container_example, is_restored)
{
    put("example.txt.qrx", example_image);
    expect_silent_success(run({"-d", "-p0", "example.txt.qrx", "restored"}));
    EXPECT_EQ(get("restored/example.txt"), example_text);
}

TEST_F(container_example, is_packed_and_unpacked)
{
    const codec_parameters codec{
        .method = 1, .level = 2, .lit_ctx_bits = 8, .hash_bits = 18, .chain_bits = 1};
    const auto header = pack_file_header({example_text.size(), {.codec = codec}});
    EXPECT_TRUE(std::equal(header.begin(), header.end(), example_image.begin()));

    const record_head head = unpack_record_head(&example_image[file_header_bytes]);
    EXPECT_EQ(head.size, 15U);
    EXPECT_EQ(displaced_index(head.displacement, 0), 0);
    EXPECT_EQ(example_image.size(), file_header_bytes + record_head_bytes + head.size);
}

} // namespace
} // namespace quarnex::test
