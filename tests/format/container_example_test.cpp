// The example of docs/formats/container.md, byte by byte.
#include "format/container.h"

#include "support/program_fixture.h"

namespace quarnex::test {
namespace {

/// The file "A", compressed by "-10 -p0" where level 0 has 15 hash bits.
const bytes example_image{
    0x00, 'Q',  'R',  '0',                          // the first byte is not looked at
    0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, // original size: 1
    0x01, 0x00, 0x00, 0x00,                         // method 1, level 0, zero
    0x08, 0x00, 0x20, 0x00,                         // 8 context bits, no filter, 32 MiB
    0x0F, 0x00, 0x00, 0x00,                         // hash bits: 15
    0x01, 0x00, 0x00, 0x00,                         // chain bits: 1
    0x00, 0x00, 0x00, 0x00,                         // zero
    0x01, 0x00, 0x00, 0x00,                         // record 0: a payload of 1 byte,
    0x00,                                           // of the block 0 + 0:
    0x41,                                           // as long as its block, so the block itself
};

using container_example = program_fixture;

TEST_F(container_example, is_written)
{
    // -D says what depends on the processor's cache otherwise.
    put("A", bytes_of("A"));
    expect_silent_success(run({"-10", "-p0", "-D15", "A", "packed"}));
    EXPECT_EQ(get("packed/A.qrx"), example_image);
}

TEST_F(container_example, is_restored)
{
    put("A.qrx", example_image);
    expect_silent_success(run({"-d", "-p0", "A.qrx", "restored"}));
    EXPECT_EQ(get("restored/A"), bytes_of("A"));
}

TEST_F(container_example, is_packed_and_unpacked)
{
    file_parameters parameters;
    parameters.method = 1;
    parameters.level = 0;
    parameters.lit_ctx_bits = 8;
    parameters.hash_bits = 15;
    parameters.chain_bits = 1;
    const auto header = pack_file_header({1, parameters});
    EXPECT_TRUE(std::equal(header.begin(), header.end(), example_image.begin()));

    const record_head head = unpack_record_head(&example_image[file_header_bytes]);
    EXPECT_EQ(head.size, 1U);
    EXPECT_EQ(displaced_index(head.displacement, 0), 0);
    EXPECT_EQ(example_image.size(), file_header_bytes + record_head_bytes + head.size);
}

} // namespace
} // namespace quarnex::test
