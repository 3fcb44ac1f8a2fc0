#include "plain/plain_file_type.h"

#include "format/file_type_tables.h"

#include <algorithm>

namespace quarnex::test {
namespace {

/// The number of continuation bytes after a lead byte; -1 if `opening` is not a lead byte.
int continuation_bytes(u8 opening)
{
    if ((opening & 0xE0) == 0xC0) return 1;
    if ((opening & 0xF0) == 0xE0) return 2;
    if ((opening & 0xF8) == 0xF0) return 3;
    if ((opening & 0xFC) == 0xF8) return 4;
    if ((opening & 0xFE) == 0xFC) return 5;
    return -1;
}

/// Returns -1 for malformed UTF-8, 0 with non-text characters, 1 without multi-byte sequences, 2
/// for text with them.
int utf8_test(const u8* data, usize size)
{
    bool has_non_text = false;
    bool has_sequence = false;
    for (usize i = 0; i < size;) {
        const u8 byte = data[i++];
        if (byte < 0x80) {
            has_non_text |= text_chars[byte] != plain_text;
            continue;
        }
        const int more = continuation_bytes(byte);
        if (more < 0) return -1;
        int found = 0;
        for (; found < more && i < size; ++found)
            if ((data[i++] & 0xC0) != 0x80) return -1;
        has_sequence |= found == more;
    }
    if (has_non_text) return 0;
    return has_sequence ? 2 : 1;
}

/// True if the low byte of each 16-bit unit, the first at `at`, has its top bit set or is plain
/// text.
bool utf16_test(const bytes& sample, usize at)
{
    for (usize units = (sample.size() - 4) / 2 + 1; units > 0; --units, at += 2)
        if (sample[at] < 0x80 && text_chars[sample[at]] != plain_text) return false;
    return true;
}

} // namespace

u32 plain_text_type(const bytes& sample)
{
    const auto starts_with = [&](const bytes& mark) {
        return sample.size() >= mark.size() && std::equal(mark.begin(), mark.end(), sample.begin());
    };
    const auto all = [&](auto class_of, u32 highest) {
        return std::all_of(sample.begin(), sample.end(), [&](u8 byte) {
            return class_of(byte) != non_text && class_of(byte) <= highest;
        });
    };
    const auto ascii = [](u8 byte) { return text_chars[byte]; };
    const auto ebcdic = [](u8 byte) { return text_chars[ebcdic_to_ascii[byte]]; };

    if (all(ascii, 1)) return 32;
    if (sample.size() > 3 && starts_with({0xEF, 0xBB, 0xBF}) &&
        utf8_test(&sample[3], sample.size() - 3) > 0)
        return 33;
    if (utf8_test(sample.data(), sample.size()) == 2) return 34;
    if (starts_with({0xFF, 0xFE}) && (sample.size() <= 3 || utf16_test(sample, 2))) return 35;
    if (starts_with({0xFE, 0xFF}) && (sample.size() <= 3 || utf16_test(sample, 3))) return 36;
    if (all(ascii, 2)) return 37;
    if (all(ascii, 3)) return 38;
    return all(ebcdic, 2) ? 39 : 0;
}

} // namespace quarnex::test
