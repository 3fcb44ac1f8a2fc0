#include "api/api_fixture.h"

#include <cstring>

namespace quarnex::test {
namespace {

/// Settles parameters of the default cell after a change.
template <class Change>
qrx_status settled(Change change)
{
    qrx_params params = params_of(3, 3);
    change(params);
    return qrx_params_settle(&params);
}

TEST(api_params, zeros_mean_the_defaults)
{
    auto params = sized<qrx_params>();
    ASSERT_EQ(qrx_params_settle(&params), QRX_OK);
    EXPECT_EQ(params.method, 3U);
    EXPECT_EQ(params.level, 3U);
    EXPECT_EQ(params.block_mib, 32U);
    EXPECT_EQ(params.hash_bits, 23U);
    EXPECT_EQ(params.chain_bits, 1U);
    EXPECT_EQ(params.struct_size, sizeof params);
}

TEST(api_params, table_sizes_of_fast_levels_are_the_same_on_every_machine)
{
    for (const auto& [level, hash_bits] : {std::pair{0U, 14U}, {1U, 16U}, {2U, 18U}}) {
        qrx_params params = params_of(1, level);
        ASSERT_EQ(qrx_params_settle(&params), QRX_OK);
        EXPECT_EQ(params.hash_bits, hash_bits);
    }
}

TEST(api_params, blocks_are_capped_at_16_mib_at_levels_4_to_7)
{
    for (u32 level = 0; level <= 9; ++level) {
        qrx_params params = params_of(2, level);
        params.block_mib = 64;
        ASSERT_EQ(qrx_params_settle(&params), QRX_OK);
        EXPECT_EQ(params.block_mib, level >= 4 && level <= 7 ? 16U : 64U);
    }
}

TEST(api_params, values_out_of_range_are_refused)
{
    EXPECT_EQ(settled([](qrx_params&) {}), QRX_OK);
    EXPECT_EQ(settled([](qrx_params& p) { p.method = 6; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.method = 257; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.level = 10; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.context_bits = 9; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.filter = 3; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.hash_bits = 9; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.hash_bits = 31; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.chain_bits = 9; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.block_mib = 2048; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(settled([](qrx_params& p) { p.block_mib = 2047; }), QRX_OK);
    EXPECT_EQ(settled([](qrx_params& p) { p.reserved = 1; }), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_params_settle(nullptr), QRX_BAD_ARGUMENT);
}

// A field that is added later must not lie in what is padding now: its bytes are undefined in
// programs that know nothing of it, and the size of the structure would stay the same.
static_assert(sizeof(qrx_params) == offsetof(qrx_params, reserved) + sizeof(u32));
static_assert(sizeof(qrx_info) == offsetof(qrx_info, reserved) + sizeof(u32));
static_assert(sizeof(qrx_block_info) == offsetof(qrx_block_info, is_found) + sizeof(u32));
static_assert(sizeof(qrx_event) == offsetof(qrx_event, got) + sizeof(u64));

TEST(api_params, structures_of_other_sizes_are_understood)
{
    struct {
        qrx_params known;
        u64 added;
    } newer{};
    newer.known = params_of(5, 1);
    newer.known.struct_size = sizeof newer;
    EXPECT_EQ(qrx_params_settle(&newer.known), QRX_OK) << "fields unknown here are zero";
    EXPECT_EQ(newer.known.struct_size, sizeof newer);
    newer.added = 1;
    EXPECT_EQ(qrx_params_settle(&newer.known), QRX_BAD_ARGUMENT) << "an unknown field is set";

    qrx_params older = params_of(5, 1);
    older.block_mib = 5; // past the end of the older structure
    older.struct_size = offsetof(qrx_params, block_mib);
    EXPECT_EQ(qrx_params_settle(&older), QRX_OK);
    EXPECT_EQ(older.block_mib, 5U) << "not touched";
    older.struct_size = 0;
    EXPECT_EQ(qrx_params_settle(&older), QRX_BAD_ARGUMENT);
}

TEST(api_params, the_file_type_selects_filter_and_context_bits)
{
    const char text[] = "a plain text\n";
    qrx_params params = params_of(4, 3);
    ASSERT_EQ(qrx_params_for_type(&params, text, sizeof text - 1, "a.exe"), QRX_OK);
    EXPECT_EQ(params.context_bits, 8U) << "the content decides first";
    EXPECT_EQ(params.filter, QRX_FILTER_NONE);
    const u8 binary[] = {0, 1, 2, 3};
    params.context_bits = 0;
    ASSERT_EQ(qrx_params_for_type(&params, binary, sizeof binary, "dir/a.exe"), QRX_OK);
    EXPECT_EQ(params.context_bits, 4U);
    EXPECT_EQ(params.filter, QRX_FILTER_X86);
    params.context_bits = 2;
    ASSERT_EQ(qrx_params_for_type(&params, binary, sizeof binary, nullptr), QRX_OK);
    EXPECT_EQ(params.context_bits, 2U) << "kept if it is set";
    EXPECT_EQ(params.filter, QRX_FILTER_NONE);
    EXPECT_EQ(qrx_params_for_type(&params, nullptr, 0, nullptr), QRX_OK);
    EXPECT_EQ(qrx_params_for_type(&params, nullptr, 1, nullptr), QRX_BAD_ARGUMENT);
    EXPECT_EQ(qrx_params_for_type(nullptr, binary, 1, nullptr), QRX_BAD_ARGUMENT);
}

TEST(api_params, memory_bounds_grow_with_threads_and_blocks)
{
    const qrx_params params = params_of(3, 3);
    EXPECT_GT(qrx_compress_memory(&params, 2), qrx_compress_memory(&params, 1));
    EXPECT_GT(qrx_decompress_memory(&params, 2), qrx_decompress_memory(&params, 1));
    EXPECT_GE(qrx_compress_memory(nullptr, 0), u64{64} << 20) << "two blocks of 32 MiB";
    EXPECT_LT(qrx_decompress_memory(&params, 0), 4 * mib);
    qrx_params bad = params_of(7, 3);
    EXPECT_EQ(qrx_compress_memory(&bad, 1), 0U);
    EXPECT_EQ(qrx_compress_memory(&params, QRX_MAX_THREADS + 1), 0U);
}

} // namespace
} // namespace quarnex::test
