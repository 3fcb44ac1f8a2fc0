// Methods 1 and 2 have two decoders each: one for processors with bit instructions and a portable
// one.  The decoder of method 2 also has a fast path for ordinary tokens and a slow path for rare
// and damaged tokens and for those that end in the payload's last bytes.  All of them must agree.
#include "method1/m1_codec.h"
#include "method2/m2_codec.h"
#include "methods/cells.h"
#include "plain/m1_plain.h"
#include "plain/m2_plain.h"
#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

using test::bytes;
using test::cell;
using test::parameters_of;

class decoder_forms : public testing::TestWithParam<cell> {
  protected:
    /// Decodes a payload with this processor's decoder and checks that the portable one agrees.
    static bytes decode(const bytes& payload, usize length)
    {
        const auto parameters = parameters_of(GetParam().method, GetParam().level);
        const bytes best = test::decode(payload, length, parameters);
        const auto& portable = GetParam().method == 1 ? m1_portable_decoder : m2_portable_decoder;
        EXPECT_TRUE(test::decode_with(portable, payload, length, parameters) == best);
        return best;
    }

    /// Decodes any payload for a block of `length` bytes with the plain decoder.
    static bytes decode_as_plainly(const bytes& payload, usize length)
    {
        const bytes out = decode(payload, length);
        // The plain decoder of method 1 accepts only undamaged streams.
        if (GetParam().method == 2) {
            EXPECT_TRUE(test::m2_plain_decode(payload, length, GetParam().level) == out);
        }
        return out;
    }

    static bytes encode(const bytes& block)
    {
        return test::encode(block, parameters_of(GetParam().method, GetParam().level, 14));
    }
};

bytes start_of(const bytes& all, usize count)
{
    return {all.begin(), all.begin() + static_cast<i64>(count)};
}

TEST_P(decoder_forms, restore_blocks_of_all_shapes)
{
    for (const auto& shape : test::all_shapes()) {
        for (const usize size : {1000U, 40000U}) {
            SCOPED_TRACE(shape.name);
            const bytes block = shape.make(size, 1 + GetParam().level);
            const bytes payload = encode(block);
            if (payload.size() == size) continue; // stored: no decoder reads it
            EXPECT_TRUE(decode(payload, size) == block);
            const u32 min_match = GetParam().level < 8 ? 4 : 3;
            EXPECT_TRUE((GetParam().method == 1
                             ? start_of(test::m1_plain_decode(payload, min_match), size)
                             : test::m2_plain_decode(payload, size, GetParam().level)) == block);
        }
    }
}

TEST_P(decoder_forms, agree_on_each_prefix_of_a_payload)
{
    // Each token is in the last bytes for some prefix.
    for (const char* const shape : {"text", "records", "mixture", "runs"}) {
        SCOPED_TRACE(shape);
        const bytes block = test::find_shape(shape).make(1500, 7);
        const bytes payload = encode(block);
        ASSERT_LT(payload.size(), block.size());
        for (usize size = 0; size <= payload.size(); ++size) {
            const bytes out = decode_as_plainly(start_of(payload, size), block.size());
            ASSERT_TRUE(std::equal(out.begin(), out.end(), block.begin())) << size;
        }
    }
}

TEST_P(decoder_forms, agree_on_payloads_with_a_flipped_bit)
{
    usize changed = 0;
    for (const char* const shape : {"text", "mixture", "runs"}) {
        SCOPED_TRACE(shape);
        const bytes block = test::find_shape(shape).make(700, 3);
        bytes payload = encode(block);
        ASSERT_LT(payload.size(), block.size());
        for (usize bit = 0; bit < 8 * payload.size(); ++bit) {
            payload[bit / 8] ^= static_cast<u8>(0x80 >> bit % 8);
            changed += decode_as_plainly(payload, block.size()) != block;
            payload[bit / 8] ^= static_cast<u8>(0x80 >> bit % 8);
        }
    }
    EXPECT_GT(changed, 1000U);
}

TEST_P(decoder_forms, agree_on_payloads_with_random_bytes_in_them)
{
    test::random_source random(GetParam().level);
    const bytes block = test::find_shape("mixture").make(20000, 5);
    const bytes payload = encode(block);
    ASSERT_LT(payload.size(), block.size());
    for (int round = 0; round < 100; ++round) {
        bytes damaged = payload;
        u32 at = random.below(static_cast<u32>(payload.size()));
        for (u32 count = 1 + random.below(40); count != 0 && at < damaged.size(); --count)
            damaged[at++] = static_cast<u8>(random.next());
        if (round % 4 == 0) damaged.resize(random.below(static_cast<u32>(payload.size())));
        decode_as_plainly(damaged, block.size());
    }
}

INSTANTIATE_TEST_SUITE_P(all, decoder_forms, testing::ValuesIn(test::cells_of(1, 2, 0, 9)),
                         test::cell_name);

} // namespace
} // namespace quarnex
