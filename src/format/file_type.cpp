#include "format/file_type.h"

#include "common/bytes.h"
#include "common/lower_case.h"

#include <algorithm>
#include <array>
#include <bit>

namespace quarnex {
namespace {

/// Sets of classes, as bit masks.
constexpr u32 set_of(char_class value)
{
    return 1U << value;
}
constexpr u32 plain_only = set_of(plain_text);
constexpr u32 up_to_iso = plain_only | set_of(iso_text);
constexpr u32 up_to_extended = up_to_iso | set_of(extended_text);

/// The classes of the bytes in a sample, read as an ASCII superset and as EBCDIC.
struct class_sets {
    u32 as_ascii = 0;
    u32 as_ebcdic = 0;

    bool has_non_text() const { return (as_ascii & set_of(non_text)) != 0; }
};

constexpr bool is_within(u32 classes, u32 allowed)
{
    return (classes & ~allowed) == 0;
}

/// Returns 1 for plain ASCII text (letters, digits, punctuation, the usual control characters), 0
/// for other bytes.  All values are bytes, so that a loop over a sample is vectorized.
constexpr u8 is_plain(u8 byte)
{
    const u8 is_graphic = static_cast<u8>(byte - 0x20) <= 0x7E - 0x20;
    const u8 is_control = static_cast<u8>(byte - 0x07) <= 0x0D - 0x07;
    const u8 is_vertical_tab = byte == 0x0B; // vertical tab
    const u8 is_escape = byte == 0x1B;
    return is_graphic | static_cast<u8>(is_control & ~is_vertical_tab) | is_escape;
}
static_assert([] {
    for (usize byte = 0; byte < text_chars.size(); ++byte) {
        const bool expected = byte < 0x80 && text_chars[byte] == plain_text;
        if (is_plain(static_cast<u8>(byte)) != (expected ? 1 : 0)) return false;
    }
    return true;
}());

/// True if all bytes of a sample are plain ASCII text.
bool is_plain_text(std::span<const u8> sample)
{
    constexpr usize step = 64;
    while (sample.size() >= step) {
        u8 all = 1;
        for (usize i = 0; i < step; ++i) all &= is_plain(sample[i]);
        if (all == 0) return false;
        sample = sample.subspan(step);
    }
    return std::all_of(sample.begin(), sample.end(), [](u8 byte) { return is_plain(byte) != 0; });
}

void add_classes(std::span<const u8> piece, class_sets& found)
{
    std::array<bool, 256> occurs{};
    for (const u8 byte : piece) occurs[byte] = true;
    for (usize i = 0; i < occurs.size(); ++i) {
        if (!occurs[i]) continue;
        found.as_ascii |= set_of(text_chars[i]);
        found.as_ebcdic |= set_of(text_chars[ebcdic_to_ascii[i]]);
    }
}

/// The classes of a sample, or of its start if they rule out everything but UTF-16.
class_sets find_classes(std::span<const u8> sample)
{
    constexpr usize piece_bytes = 1U << 14;
    class_sets found;
    while (!sample.empty()) {
        const usize size = std::min(sample.size(), piece_bytes);
        add_classes(sample.first(size), found);
        if (found.has_non_text() && !is_within(found.as_ebcdic, up_to_iso)) break;
        sample = sample.subspan(size);
    }
    return found;
}

/// True if a text without non-text bytes is UTF-8 and not just ASCII: has at least one sequence.
bool is_utf8(std::span<const u8> text)
{
    int missing = 0; // continuation bytes of the current sequence
    bool has_sequence = false;
    for (const u8 byte : text) {
        const int top_ones = std::countl_one(byte); // 1 in a continuation byte
        if (missing != 0) {
            if (top_ones != 1) return false;
            has_sequence |= --missing == 0;
        } else if (top_ones != 0) {
            if (top_ones == 1 || top_ones > 6) return false;
            missing = top_ones - 1;
        }
    }
    return has_sequence;
}

bool has_utf8_mark(std::span<const u8> text)
{
    return text.size() > 3 && text[0] == 0xEF && text[1] == 0xBB && text[2] == 0xBF;
}

/// The type of a UTF-16 text with a byte order mark.  Tests the low byte of each unit only, for
/// plain text or a set top bit.
type_number classify_utf16(std::span<const u8> text)
{
    constexpr u16 mark = 0xFEFF;
    if (text.size() < sizeof mark) return type_unknown;
    const u16 start = load_u16(text.data());
    if (start != mark && start != byte_swap(mark)) return type_unknown;
    const bool is_little = start == mark;
    for (usize at = sizeof mark; at + 1 < text.size(); at += 2) {
        if (text_chars[text[is_little ? at : at + 1]] == non_text) return type_unknown;
    }
    return is_little ? type_utf16_little : type_utf16_big;
}

} // namespace

type_number classify_text(std::span<const u8> sample)
{
    if (is_plain_text(sample)) return type_ascii; // most texts
    const class_sets classes = find_classes(sample);
    if (is_within(classes.as_ascii, plain_only)) return type_ascii;
    if (!classes.has_non_text() && is_utf8(sample)) {
        return has_utf8_mark(sample) ? type_utf8_marked : type_utf8;
    }
    if (const type_number type = classify_utf16(sample); type != type_unknown) return type;
    if (is_within(classes.as_ascii, up_to_iso)) return type_iso_8859;
    if (is_within(classes.as_ascii, up_to_extended)) return type_extended_ascii;
    if (is_within(classes.as_ebcdic, up_to_iso)) return type_ebcdic;
    return type_unknown;
}

type_number classify_name(std::string_view name)
{
    constexpr usize min_length = 2;
    const usize dot = name.rfind('.');
    if (dot == std::string_view::npos) return type_unknown;
    name.remove_prefix(dot + 1); // a path separator in the rest matches no row
    if (name.size() < min_length) return type_unknown;
    const auto row =
        std::find_if(extension_table.begin(), extension_table.end(), [&](const auto& each) {
            return std::equal(name.begin(), name.end(), each.extension.begin(),
                              each.extension.end(),
                              [](char a, char b) { return lower_case(a) == b; });
        });
    return row != extension_table.end() ? row->type : type_unknown;
}

void classify_file(std::span<const u8> sample, std::string_view name, file_parameters& parameters)
{
    constexpr u32 max_lit_ctx_bits = 8;
    type_number number = classify_text(sample);
    if (number == type_unknown) number = classify_name(name);
    const file_type& type = file_type_table[number];
    parameters.filter_flags = type.flags & static_cast<u8>(~type_has_alternative);
    const u32 bits =
        parameters.codec.lit_ctx_bits != 0 ? parameters.codec.lit_ctx_bits : type.lit_ctx_bits;
    parameters.codec.lit_ctx_bits = static_cast<u8>(std::min(bits, max_lit_ctx_bits));
}

} // namespace quarnex
