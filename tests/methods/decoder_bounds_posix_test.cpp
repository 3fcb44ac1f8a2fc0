// Decoders read only the payload and write only the block: they run between guard pages and among
// bytes of others, and give what they give for a payload that zeros follow.
#include "common/scratch.h"
#include "method1/m1_codec.h"
#include "method2/m2_codec.h"
#include "methods/cells.h"
#include "support/codec_runs.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <span>
#include <sys/mman.h>
#include <unistd.h>

namespace quarnex {
namespace {

using test::bytes;
using test::cell;

constexpr usize capacity = usize{1} << 16; // of an area; whole pages
constexpr usize others = 8192;             // bytes of others after a payload and a block

/// Memory between two guard pages.
class guarded_area {
  public:
    guarded_area()
    {
        void* const memory =
            mmap(nullptr, mapped(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) std::abort();
        begin_ = static_cast<u8*>(memory) + page();
        if (mprotect(memory, page(), PROT_NONE) != 0) std::abort();
        if (mprotect(begin_ + capacity, page(), PROT_NONE) != 0) std::abort();
    }
    ~guarded_area() { munmap(begin_ - page(), mapped()); }
    guarded_area(const guarded_area&) = delete;
    guarded_area& operator=(const guarded_area&) = delete;

    /// The first bytes, right after a guard page.
    std::span<u8> first(usize size) const { return {begin_, size}; }
    /// The last bytes, right before a guard page.
    std::span<u8> last(usize size) const { return {begin_ + (capacity - size), size}; }

  private:
    static usize page() { return static_cast<usize>(sysconf(_SC_PAGESIZE)); }
    static usize mapped() { return capacity + 2 * page(); }

    u8* begin_;
};

class decoder_bounds : public testing::TestWithParam<cell> {
  protected:
    codec_parameters parameters() const
    {
        return test::parameters_of(GetParam().method, GetParam().level, 12);
    }

    /// The decoders of the method: the table's and a portable one.
    std::vector<const codec_entry*> decoders() const
    {
        const u8 method = GetParam().method;
        if (method == 1) return {decoder_table[1], &m1_portable_decoder};
        if (method == 2) return {decoder_table[2], &m2_portable_decoder};
        return {decoder_table[method]};
    }

    codec_result decode(const codec_entry& decoder, std::span<const u8> payload, std::span<u8> out)
    {
        codec_job job;
        job.parameters = parameters();
        job.in_buf = payload.data();
        job.in_len = static_cast<u32>(payload.size());
        job.out_buf = out.data();
        job.out_len = static_cast<u32>(out.size());
        job.memory = &memory_;
        void* const state = decoder.init(job);
        const codec_result result = decoder.run(job, state);
        decoder.release(job, state);
        return result;
    }

    /// Decodes a payload for a block of `length` bytes with zeros after the payload, then between
    /// guard pages, then among bytes of others, and expects the same each time.
    void expect_the_same_everywhere(const bytes& payload, usize length)
    {
        ASSERT_LE(payload.size() + others, capacity);
        ASSERT_LE(length + others, capacity);
        bytes zeros_follow = payload;
        zeros_follow.resize(payload.size() + others);
        for (const codec_entry* decoder : decoders()) {
            bytes expected(length + others);
            const codec_result result =
                decode(*decoder, std::span(zeros_follow).first(payload.size()),
                       std::span(expected).first(length));
            expected.resize(result.length);

            const auto check = [&](std::span<u8> in, std::span<u8> out) {
                std::copy(payload.begin(), payload.end(), in.begin());
                const codec_result same = decode(*decoder, in, out);
                ASSERT_EQ(same.length, result.length);
                ASSERT_EQ(same.exact_end, result.exact_end);
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), out.begin()));
            };
            ASSERT_NO_FATAL_FAILURE(check(in_.last(payload.size()), out_.last(length)));

            constexpr u8 other = 0xC3;
            std::ranges::fill(in_.first(payload.size() + others), other);
            const std::span<u8> out = out_.first(length + others);
            std::ranges::fill(out, other);
            ASSERT_NO_FATAL_FAILURE(check(in_.first(payload.size()), out.first(length)));
            ASSERT_EQ(std::ranges::count(out.last(others), other), i64{others});
        }
    }

    /// Returns the payload of a block; empty if the block is stored.
    bytes encode(const bytes& block) const
    {
        bytes payload = test::encode(block, parameters());
        if (payload.size() == block.size()) payload.clear();
        return payload;
    }

    guarded_area in_;
    guarded_area out_;
    scratch memory_{system_allocator};
};

/// Lengths of blocks that no fast loop decodes, that one decodes in part, and larger ones.
constexpr usize lengths[] = {7, 33, 150, 700, 2300, 2700, 4100, 20000};

TEST_P(decoder_bounds, hold_for_valid_streams)
{
    usize streams = 0;
    for (const test::shape& shape : test::all_shapes()) {
        for (const usize length : lengths) {
            for (const usize size : {length, length + 1, length + 2}) {
                const bytes payload = encode(shape.make(size, size + GetParam().level));
                if (payload.empty()) continue;
                SCOPED_TRACE(shape.name);
                SCOPED_TRACE(size);
                ASSERT_NO_FATAL_FAILURE(expect_the_same_everywhere(payload, size));
                ++streams;
            }
        }
    }
    EXPECT_GT(streams, 100U);
}

TEST_P(decoder_bounds, hold_for_blocks_of_another_length)
{
    for (const char* const shape : {"text", "records", "runs"}) {
        const bytes payload = encode(test::find_shape(shape).make(3000, 5));
        ASSERT_FALSE(payload.empty());
        for (usize length = 1; length <= 4000; length += length > 2900 && length < 3100 ? 1 : 37) {
            SCOPED_TRACE(shape);
            SCOPED_TRACE(length);
            ASSERT_NO_FATAL_FAILURE(expect_the_same_everywhere(payload, length));
        }
    }
}

TEST_P(decoder_bounds, hold_for_truncated_streams)
{
    for (const char* const shape : {"text", "mixture", "runs"}) {
        const bytes payload = encode(test::find_shape(shape).make(4000, 9));
        ASSERT_FALSE(payload.empty());
        for (usize size = 0; size < payload.size(); ++size) {
            if (size > 500 && size + 500 < payload.size()) size += 29;
            SCOPED_TRACE(shape);
            SCOPED_TRACE(size);
            const bytes cut(payload.begin(), payload.begin() + static_cast<i64>(size));
            ASSERT_NO_FATAL_FAILURE(expect_the_same_everywhere(cut, 4000));
        }
    }
}

TEST_P(decoder_bounds, hold_for_damaged_streams)
{
    test::random_source random(GetParam().level);
    usize changed = 0;
    for (const char* const shape : {"text", "mixture", "records", "runs"}) {
        const bytes payload = encode(test::find_shape(shape).make(6000, 2));
        ASSERT_FALSE(payload.empty());
        const auto size = static_cast<u32>(payload.size());
        for (int round = 0; round < 300; ++round) {
            bytes damaged = payload;
            // Every other round in the last bytes, which are decoded in another way.
            const u32 from = round % 2 == 0 ? 0 : size - std::min(size, 450U);
            for (u32 count = 1 + random.below(3); count != 0; --count)
                damaged[from + random.below(size - from)] = static_cast<u8>(random.next());
            SCOPED_TRACE(shape);
            SCOPED_TRACE(round);
            ASSERT_NO_FATAL_FAILURE(expect_the_same_everywhere(damaged, 6000));
            changed += damaged != payload;
        }
    }
    EXPECT_GT(changed, 1000U);
}

TEST_P(decoder_bounds, hold_for_random_payloads)
{
    test::random_source random(100 + GetParam().level);
    for (int round = 0; round < 400; ++round) {
        bytes payload(random.below(900));
        // Many zeros and ones select long codes and tokens.
        for (u8& byte : payload) {
            const u32 form = random.below(4);
            byte = form == 0 ? u8{0} : form == 1 ? u8{0xFF} : static_cast<u8>(random.next());
        }
        SCOPED_TRACE(round);
        ASSERT_NO_FATAL_FAILURE(expect_the_same_everywhere(payload, 1 + random.below(6000)));
    }
}

INSTANTIATE_TEST_SUITE_P(all, decoder_bounds, testing::ValuesIn(test::cells_of(1, 5, 0, 9)),
                         test::cell_name);

} // namespace
} // namespace quarnex
