#include "format/container.h"

#include "common/bytes.h"
#include "common/lower_case.h"

#include <cassert>
#include <cstring>

namespace quarnex {
namespace {

constexpr std::array<u8, 4> magic{0x00, 'Q', 'R',
                                  '0'}; // the first byte is written but never checked

// Offsets in the header.
constexpr usize at_size = 4;
constexpr usize at_method = 12;
constexpr usize at_level = 13;
constexpr usize at_lit_ctx_bits = 16;
constexpr usize at_filter_flags = 17;
constexpr usize at_block_mb = 18;
constexpr usize at_hash_bits = 20;
constexpr usize at_chain_bits = 24;

} // namespace

std::array<u8, file_header_bytes> pack_file_header(const file_header& header)
{
    std::array<u8, file_header_bytes> bytes{};
    const file_parameters& parameters = header.parameters;
    std::memcpy(bytes.data(), magic.data(), magic.size());
    store_u64(&bytes[at_size], header.original_size);
    bytes[at_method] = parameters.codec.method;
    bytes[at_level] = parameters.codec.level;
    bytes[at_lit_ctx_bits] = parameters.codec.lit_ctx_bits;
    bytes[at_filter_flags] = parameters.filter_flags;
    store_u16(&bytes[at_block_mb], parameters.block_mb);
    store_u32(&bytes[at_hash_bits], static_cast<u32>(parameters.codec.hash_bits));
    store_u32(&bytes[at_chain_bits], static_cast<u32>(parameters.codec.chain_bits));
    return bytes;
}

bool unpack_file_header(const std::array<u8, file_header_bytes>& bytes, file_header& header)
{
    if (std::memcmp(&bytes[1], &magic[1], magic.size() - 1) != 0) return false;
    header = unpack_fields(bytes);
    return true;
}

file_header unpack_fields(const std::array<u8, file_header_bytes>& bytes)
{
    file_header header{};
    header.original_size = load_u64(&bytes[at_size]);
    header.parameters.codec.method = bytes[at_method];
    header.parameters.codec.level = bytes[at_level];
    header.parameters.codec.lit_ctx_bits = bytes[at_lit_ctx_bits];
    header.parameters.filter_flags = bytes[at_filter_flags];
    header.parameters.block_mb = load_u16(&bytes[at_block_mb]);
    header.parameters.codec.hash_bits = static_cast<i32>(load_u32(&bytes[at_hash_bits]));
    header.parameters.codec.chain_bits = static_cast<i32>(load_u32(&bytes[at_chain_bits]));
    return header;
}

void pack_record_head(u8* dest, const record_head& head)
{
    store_u32(dest, head.size);
    dest[displacement_offset] = head.displacement;
}

record_head unpack_record_head(const u8* src)
{
    return {load_u32(src), src[displacement_offset]};
}

u8 displacement_byte(u32 block_index, u32 sequence)
{
    const bool is_negative = block_index < sequence;
    const u32 distance = is_negative ? sequence - block_index : block_index - sequence;
    return static_cast<u8>(distance << 1 | (is_negative ? 1 : 0));
}

i64 displaced_index(u8 displacement, u32 sequence)
{
    const i64 distance = displacement >> 1;
    return (displacement & 1) != 0 ? sequence - distance : sequence + distance;
}

u64 count_blocks(u64 size, u64 block_size)
{
    assert(block_size != 0);
    return size / block_size + (size % block_size != 0 ? 1 : 0);
}

u64 block_length(u64 size, u64 block_size, u64 index)
{
    assert(index == 0 || index < count_blocks(size, block_size));
    const u64 rest = size - index * block_size;
    return rest > block_size ? block_size : rest;
}

bool has_suffix(const char* name)
{
    const usize length = std::strlen(name);
    if (length < file_suffix_bytes) return false;
    const char* const tail = name + length - file_suffix_bytes;
    for (usize i = 0; i < file_suffix_bytes; ++i) {
        if (lower_case(tail[i]) != file_suffix[i]) return false;
    }
    return true;
}

} // namespace quarnex
