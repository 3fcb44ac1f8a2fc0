#include "support/qrx_file.h"

#include "support/mib.h"

#include <algorithm>

namespace quarnex::test {
namespace {

/// Appends the low `count` bytes of `value`, little-endian.
void append(bytes& image, u64 value, usize count)
{
    for (; count != 0; --count, value >>= 8) image.push_back(static_cast<u8>(value));
}

u64 number_at(const bytes& image, usize offset, usize count)
{
    u64 value = 0;
    while (count != 0) value = value << 8 | image[offset + --count];
    return value;
}

void append_header(bytes& image, const qrx_header& header)
{
    image.insert(image.end(), {0, 'Q', 'R', '0'});
    append(image, header.original_size, 8);
    image.push_back(header.method);
    image.push_back(header.level);
    append(image, 0, 2);
    image.push_back(header.lit_ctx_bits);
    image.push_back(header.filter_flags);
    append(image, header.block_mb, 2);
    append(image, header.hash_bits, 4);
    append(image, header.chain_bits, 4);
    append(image, 0, 4);
}

qrx_header header_of(const bytes& image)
{
    qrx_header header;
    header.original_size = number_at(image, 4, 8);
    header.method = image[12];
    header.level = image[13];
    header.lit_ctx_bits = image[16];
    header.filter_flags = image[17];
    header.block_mb = static_cast<u16>(number_at(image, 18, 2));
    header.hash_bits = static_cast<u32>(number_at(image, 20, 4));
    header.chain_bits = static_cast<u32>(number_at(image, 24, 4));
    return header;
}

} // namespace

bytes build_qrx(const qrx_file& file)
{
    bytes image;
    append_header(image, file.header);
    for (const qrx_record& record : file.records) {
        append(image, record.payload.size(), 4);
        image.push_back(record.displacement);
        image.insert(image.end(), record.payload.begin(), record.payload.end());
    }
    return image;
}

std::optional<qrx_file> parse_qrx(const bytes& image)
{
    if (image.size() < header_bytes) return {};
    qrx_file file{header_of(image), {}};
    bytes expected;
    append_header(expected, file.header);
    if (!std::equal(expected.begin(), expected.end(), image.begin())) return {};

    for (usize at = header_bytes; at != image.size();) {
        if (image.size() - at < record_head_bytes) return {};
        const auto size = static_cast<usize>(number_at(image, at, 4));
        const u8 displacement = image[at + 4];
        at += record_head_bytes;
        if (image.size() - at < size) return {};
        const auto payload = image.begin() + static_cast<std::ptrdiff_t>(at);
        file.records.push_back(
            {displacement, bytes(payload, payload + static_cast<std::ptrdiff_t>(size))});
        at += size;
    }
    return file;
}

u8 displacement_of(i32 distance)
{
    return static_cast<u8>(distance < 0 ? -distance * 2 + 1 : distance * 2);
}

std::optional<std::vector<bytes>> payloads_in_order(const qrx_file& file)
{
    std::vector<bytes> payloads(file.records.size());
    std::vector<bool> seen(file.records.size());
    for (usize sequence = 0; sequence < file.records.size(); ++sequence) {
        const auto& [displacement, payload] = file.records[sequence];
        const usize distance = displacement >> 1;
        const usize index = (displacement & 1) != 0 ? sequence - distance : sequence + distance;
        if (index >= seen.size() || seen[index]) return {};
        seen[index] = true;
        payloads[index] = payload;
    }
    return payloads;
}

bytes m1_run_payload(u8 value, u32 length)
{
    // The first byte; a control word whose two top flags are set for two matches; a long match at
    // distance 1 (all bits of its length set, the rest in a five-byte integer); the end mark.
    bytes payload{value, 0, 0, 0, 0xC0, 0xFF, 0xF0};
    append(payload, length - 1 - (63 + 4), 4);
    payload.insert(payload.end(), {1, 0xEB, 0});
    return payload;
}

qrx_file swapped_file()
{
    constexpr u32 rest = 40;
    qrx_file file;
    file.header.original_size = 2 * mib + rest;
    file.records = {{displacement_of(1), m1_run_payload('b', mib)},
                    {displacement_of(-1), m1_run_payload('a', mib)},
                    {displacement_of(0), bytes(rest, 'c')}};
    return file;
}

} // namespace quarnex::test
