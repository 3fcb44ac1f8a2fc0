#include "format/container.h"
#include "format/filters.h"
#include "pipeline/block_coder_fixture.h"
#include "support/limited_allocator.h"
#include "support/qrx_file.h"
#include "support/temp_dir.h"

#include <cerrno>

namespace quarnex::test {
namespace {

TEST_F(block_coder, a_record_is_a_head_and_a_shorter_payload)
{
    block_job job = job_to_encode(buffers, bytes(100000, 'r'));
    job.block_index = 7;
    job.block_count = 9;
    expect_coded(job);

    const record_head head = unpack_record_head(finished.buf.get());
    EXPECT_LT(head.size, 100000U);
    EXPECT_EQ(head.displacement, 0);
    EXPECT_EQ(finished.size, head.size + 5);
    EXPECT_EQ(finished.block_index, 7U);
    EXPECT_EQ(finished.block_count, 9U);
    EXPECT_EQ(finished.mode, direction::compress);
    EXPECT_EQ(job.in_alloc, nullptr) << "the input is freed";
}

TEST_F(block_coder, an_incompressible_block_is_stored)
{
    const bytes block = find_shape("random").make(1000, 3);
    block_job job = job_to_encode(buffers, block);
    expect_coded(job);

    bytes record{0xE8, 0x03, 0, 0, 0}; // 1000, little-endian
    record.insert(record.end(), block.begin(), block.end());
    EXPECT_EQ(content_of(finished), record);
}

TEST_F(block_coder, one_byte_is_stored)
{
    block_job job = job_to_encode(buffers, {'x'});
    expect_coded(job);
    EXPECT_EQ(content_of(finished), (bytes{1, 0, 0, 0, 0, 'x'}));
}

TEST_F(block_coder, an_empty_block_calls_no_codec)
{
    block_job job = job_to_encode(buffers, {}, {.codec = {.method = 0}}); // method 0 has no codec
    expect_coded(job);
    EXPECT_EQ(content_of(finished), bytes(5));
}

TEST_F(block_coder, an_encoder_without_memory_fails_and_returns_its_status)
{
    block_job job = job_to_encode(buffers, bytes(1000), failing_parameters);
    const block_result result = code_block(buffers, memory, job, finished);
    EXPECT_EQ(result.status, block_status::uncoded);
    EXPECT_EQ(result.codec_error, codec_status::no_table);
}

TEST_F(block_coder, a_decoder_without_memory_for_its_models_fails)
{
    limited_allocator refusing;
    refusing.refuse_from(1);
    scratch no_memory(refusing.get());
    for (const u8 method : {u8{4}, u8{5}}) {
        block_job job = job_to_decode(buffers, bytes(20), 5000);
        job.codec.parameters.method = method;
        const block_result result = code_block(buffers, no_memory, job, finished);
        EXPECT_EQ(result.status, block_status::uncoded);
        EXPECT_EQ(result.codec_error, codec_status::no_state);
    }
}

TEST_F(block_coder, a_block_without_memory_for_its_output_fails)
{
    limited_allocator refusing;
    buffer_pool few_buffers(refusing.get(), 4);
    block_job encoded = job_to_encode(few_buffers, bytes(1000));
    block_job decoded = job_to_decode(few_buffers, m1_run_payload('z', 5000), 5000);
    refusing.refuse_from(1);
    EXPECT_EQ(code_block(few_buffers, memory, encoded, finished).status, block_status::no_buffer);
    EXPECT_EQ(code_block(few_buffers, memory, decoded, finished).status, block_status::no_buffer);
}

TEST_F(block_coder, a_payload_becomes_its_block)
{
    block_job job = job_to_decode(buffers, m1_run_payload('z', 5000), 5000);
    job.block_index = 3;
    job.block_count = 4;
    EXPECT_EQ(expect_coded(job), 5000U);
    EXPECT_EQ(content_of(finished), bytes(5000, 'z'));
    EXPECT_EQ(finished.block_index, 3U);
    EXPECT_EQ(finished.block_count, 4U);
    EXPECT_EQ(finished.mode, direction::decompress);
    EXPECT_EQ(finished.block_mb, 1U);
    EXPECT_EQ(job.in_alloc, nullptr);
}

TEST_F(block_coder, a_stored_block_moves_its_buffer_and_calls_no_codec)
{
    const bytes block = find_shape("random").make(1000, 3);
    block_job job = job_to_decode(buffers, block, 1000);
    job.codec.parameters.method = 200;
    const u8* const place = job.in_alloc.get();
    expect_coded(job);
    EXPECT_EQ(finished.buf.get(), place);
    EXPECT_EQ(content_of(finished), block);
}

TEST_F(block_coder, an_empty_stored_block_has_a_buffer)
{
    block_job job = job_to_decode(buffers, {}, 0);
    expect_coded(job);
    EXPECT_NE(finished.buf, nullptr) << "null would end the writer";
    EXPECT_EQ(finished.size, 0U);
}

// Undoing delta: each byte is added to the restored byte three positions before it.

TEST_F(block_coder, the_filter_of_a_stored_block_is_undone_in_its_buffer)
{
    block_job job = job_to_decode(buffers, {1, 2, 3, 3, 2, 1, 9}, 7);
    job.filter_flags = filter_delta;
    job.codec.parameters.method = 200;
    const u8* const place = job.in_alloc.get();
    expect_coded(job);
    EXPECT_EQ(finished.buf.get(), place);
    EXPECT_EQ(content_of(finished), (bytes{1, 2, 3, 4, 4, 4, 9}));
}

TEST_F(block_coder, the_filter_of_a_decoded_block_is_undone)
{
    block_job job = job_to_decode(buffers, m1_run_payload(1, 100), 100);
    job.filter_flags = filter_delta;
    expect_coded(job);
    bytes expected;
    for (u8 value = 1; value <= 33; ++value) expected.insert(expected.end(), 3, value);
    expected.push_back(1); // after the last group
    EXPECT_EQ(content_of(finished), expected);
}

TEST_F(block_coder, the_filter_is_also_undone_over_the_zeros_of_a_short_block)
{
    block_job job = job_to_decode(buffers, m1_run_payload(1, 72), 99);
    job.filter_flags = filter_delta;
    EXPECT_EQ(expect_coded(job), 72U);
    bytes expected;
    for (u8 value = 1; value <= 24; ++value) expected.insert(expected.end(), 3, value);
    expected.resize(99, 24);
    EXPECT_EQ(content_of(finished), expected);
}

TEST_F(block_coder, encoding_applies_no_filter)
{
    block_job job = job_to_encode(buffers, {1, 2, 3, 4, 4, 4});
    job.filter_flags = filter_delta; // the driver has applied it
    expect_coded(job);
    EXPECT_EQ(content_of(finished), (bytes{6, 0, 0, 0, 0, 1, 2, 3, 4, 4, 4}));
}

/// Leaves an idle buffer filled with 0xAA in the pool, for the next block of `size` bytes.
void leave_old_content(buffer_pool& buffers, usize size)
{
    const block_buffer buffer = buffers.take(size);
    std::memset(buffer.get(), 0xAA, size);
}

TEST_F(block_coder, a_short_block_is_returned_and_padded_with_zeros_not_old_content)
{
    constexpr u32 size = 300000;
    bytes expected(70, 'A');
    expected.resize(size);

    block_job job = job_to_decode(buffers, m1_run_payload('A', 70), size);
    leave_old_content(buffers, size);
    EXPECT_EQ(expect_coded(job), 70U);
    EXPECT_EQ(content_of(finished), expected);
}

TEST_F(block_coder, an_empty_payload_decodes_to_zeros)
{
    constexpr u32 size = 300000;
    block_job job = job_to_decode(buffers, {}, size);
    leave_old_content(buffers, size);
    EXPECT_EQ(expect_coded(job), 0U);
    EXPECT_EQ(content_of(finished), bytes(size));
}

class block_coder_write : public block_coder {
  protected:
    write_job make(const bytes& content, u32 index, direction mode, u16 block_mb = 0)
    {
        write_job job;
        job.mode = mode;
        job.buf = fill_buffer(buffers, content, 0);
        job.size = static_cast<u32>(content.size());
        job.block_index = index;
        job.block_mb = block_mb;
        job.out_file = file;
        return job;
    }

    temp_dir dir;
    output_ref file = create_output(dir / "out");
};

TEST_F(block_coder_write, a_record_gets_its_displacement)
{
    write_job first = make({1, 0, 0, 0, 0, 'b'}, 1, direction::compress);
    write_job second = make({1, 0, 0, 0, 0, 'a'}, 0, direction::compress);
    EXPECT_EQ(write_block(first, 0), 0);
    EXPECT_EQ(write_block(second, 1), 0);
    EXPECT_EQ(read_file(dir / "out"), (bytes{1, 0, 0, 0, 2, 'b', 1, 0, 0, 0, 3, 'a'}));
}

TEST_F(block_coder_write, decoded_data_is_written_unchanged_at_the_blocks_offset)
{
    write_job data = make(bytes_of("123456"), 2, direction::decompress, 3);
    EXPECT_EQ(write_block(data, 0), 0);
    bytes expected(2 * 3 * mib);
    for (const u8 byte : bytes_of("123456")) expected.push_back(byte);
    EXPECT_EQ(read_file(dir / "out"), expected);
}

TEST_F(block_coder_write, an_offset_beyond_the_largest_one_is_a_failure)
{
    write_job data = make({'x'}, 0xFFFFFFFF, direction::decompress, 0x8000);
    EXPECT_EQ(write_block(data, 0), EINVAL);
}

} // namespace
} // namespace quarnex::test
