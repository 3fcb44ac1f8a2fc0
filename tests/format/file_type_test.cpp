#include "format/file_type.h"

#include "frontend/system.h"
#include "plain/plain_file_type.h"
#include "support/shapes.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <sstream>

namespace quarnex {
namespace {

using test::bytes;
using test::bytes_of;
using test::joined;

/// A text that is not EBCDIC, because of its spaces, with `insert` in its middle.
bytes text_around(const bytes& insert)
{
    return joined({bytes_of("some words "), insert, bytes_of(" and more\n")});
}

u32 type_of(const bytes& sample)
{
    return classify_text(sample);
}

u32 type_around(const bytes& insert)
{
    return type_of(text_around(insert));
}

// Single bytes

bool is_in(u32 value, std::initializer_list<std::pair<u32, u32>> ranges)
{
    return std::any_of(ranges.begin(), ranges.end(), [&](const auto& range) {
        return value >= range.first && value <= range.second;
    });
}

TEST(classify_text, each_byte_in_an_ascii_text)
{
    for (u32 value = 0; value < 256; ++value) {
        u32 expected = 37;
        if (is_in(value, {{0, 6}, {0x0B, 0x0B}, {0x0E, 0x1A}, {0x1C, 0x1F}, {0x7F, 0x7F}})) {
            expected = 0;
        } else if (value < 0x80 || value == 0x85) {
            expected = 32;
        } else if (value < 0xA0) {
            expected = 38;
        }
        EXPECT_EQ(type_around({static_cast<u8>(value)}), expected) << value;
    }
}

TEST(classify_text, a_byte_is_noticed_anywhere_in_an_ascii_text)
{
    bytes text(200, 'a');
    for (usize at = 0; at < text.size(); ++at) {
        for (const auto& [byte, type] : {std::pair{u8{0x0B}, 0U}, std::pair{u8{0xE9}, 37U},
                                         std::pair{u8{0x85}, 32U}, std::pair{u8{'\t'}, 32U}}) {
            text[at] = byte;
            EXPECT_EQ(type_of(text), type) << at;
        }
        text[at] = 'a';
    }
}

TEST(classify_text, an_empty_file_is_ascii)
{
    EXPECT_EQ(type_of({}), 32U);
}

TEST(classify_text, the_highest_byte_class_of_a_text_decides)
{
    EXPECT_EQ(type_around({0xE9, ' ', 0x85}), 37U);
    EXPECT_EQ(type_around({0xE9, ' ', 0x82}), 38U);
    EXPECT_EQ(type_around({0xE9, ' ', 0x82, ' ', 0x01}), 0U);
}

TEST(classify_text, binary_data_is_not_text)
{
    for (const char* const shape : {"random", "zeros", "records", "machine_code", "de_bruijn"}) {
        EXPECT_EQ(type_of(test::find_shape(shape).make(10000, 1)), 0U) << shape;
    }
    EXPECT_EQ(type_of(test::find_shape("text").make(10000, 1)), 32U);
}

// UTF-8

TEST(classify_text, sequences_of_two_to_six_bytes_are_utf8)
{
    for (const bytes& sequence :
         {bytes{0xC3, 0xA9}, bytes{0xE2, 0x82, 0xAC}, bytes{0xF0, 0x9F, 0x98, 0x80},
          bytes{0xF8, 0x88, 0x80, 0x80, 0x80}, bytes{0xFD, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF}}) {
        EXPECT_EQ(type_around(sequence), 34U) << sequence.size();
        EXPECT_EQ(type_of(sequence), 34U) << sequence.size();
    }
}

TEST(classify_text, overlong_forms_and_surrogates_are_utf8)
{
    EXPECT_EQ(type_around({0xC0, 0x80}), 34U);
    EXPECT_EQ(type_around({0xED, 0xA0, 0x80}), 34U);
}

TEST(classify_text, malformed_sequences_are_not_utf8)
{
    EXPECT_EQ(type_around({0xA9}), 37U) << "no lead byte";
    EXPECT_EQ(type_around({0xC3, 0xA9, 0xA9}), 37U) << "one continuation byte too many";
    EXPECT_EQ(type_around({0xE2, 0xA2}), 37U) << "one continuation byte too few";
    EXPECT_EQ(type_around({0xC3, 0xC3, 0xA9}), 37U) << "a lead byte instead of a continuation byte";
    EXPECT_EQ(type_around({0xC3, 0xA9, 0xFE}), 37U);
    EXPECT_EQ(type_around({0xC3, 0xA9, 0xFF}), 37U);
    EXPECT_EQ(type_around({0xFE, 0xA9, 0xA9, 0xA9, 0xA9, 0xA9, 0xA9}), 37U);
    EXPECT_EQ(type_around({0xC3, 0xA9, ' ', 0x80}), 38U);
}

TEST(classify_text, utf8_with_a_control_character_is_not_type_34)
{
    EXPECT_EQ(type_around({0xC3, 0xA9, 0x01}), 0U);
    EXPECT_EQ(type_around({0x01, 0xC3, 0xA9}), 0U);
    // Unless it is EBCDIC text: "Bz" and a next line character.
    EXPECT_EQ(type_of({0xC2, 0xA9, 0x15}), 39U);
}

TEST(classify_text, a_truncated_sequence_at_the_end_is_ignored)
{
    const bytes truncated_only{'a', ' ', 0xE2, 0x82};
    EXPECT_EQ(type_of(truncated_only), 38U) << "without a whole sequence it is not UTF-8";
    const bytes whole_and_truncated{'a', 0xC3, 0xA9, ' ', 0xE2, 0x82};
    EXPECT_EQ(type_of(whole_and_truncated), 34U);
}

TEST(classify_text, a_byte_order_mark_before_utf8_is_type_33)
{
    EXPECT_EQ(type_of({0xEF, 0xBB, 0xBF, 'a'}), 33U);
    EXPECT_EQ(type_of({0xEF, 0xBB, 0xBF, 'a', 0xC3, 0xA9}), 33U);
    EXPECT_EQ(type_of({0xEF, 0xBB, 0xBF, 'a', 0xC3}), 33U) << "truncated";
    EXPECT_EQ(type_of({0xEF, 0xBB, 0xBF, 0xE2, 0x82}), 33U) << "truncated";
}

TEST(classify_text, a_byte_order_mark_alone_is_an_ordinary_sequence)
{
    EXPECT_EQ(type_of({0xEF, 0xBB, 0xBF}), 34U);
    EXPECT_EQ(type_around({0xEF, 0xBB, 0xBF}), 34U) << "not at the start";
}

TEST(classify_text, a_byte_order_mark_before_malformed_utf8_has_no_effect)
{
    EXPECT_EQ(type_of({0xEF, 0xBB, 0xBF, 'a', 0xC3, 'b'}), 37U);
    EXPECT_EQ(type_of({0xEF, 0xBB, 0xBF, 'a', ' ', 0x01}), 0U);
}

// UTF-16

TEST(classify_text, a_byte_order_mark_of_two_bytes_is_utf16)
{
    EXPECT_EQ(type_of({0xFF, 0xFE}), 35U);
    EXPECT_EQ(type_of({0xFE, 0xFF}), 36U);
}

TEST(classify_text, of_three_bytes_the_mark_alone_decides)
{
    EXPECT_EQ(type_of({0xFF, 0xFE, 0x01}), 35U);
    EXPECT_EQ(type_of({0xFE, 0xFF, 0x01}), 36U);
}

TEST(classify_text, half_a_byte_order_mark_is_none)
{
    EXPECT_EQ(type_of({0xFF}), 37U);
    EXPECT_EQ(type_of({0xFF, 0xFF, 0x00, 0x00}), 0U);
}

TEST(classify_text, only_the_low_byte_of_each_utf16_unit_is_tested)
{
    EXPECT_EQ(type_of({0xFF, 0xFE, 'a', 0x00}), 35U);
    EXPECT_EQ(type_of({0xFF, 0xFE, 'a', 0x01, '\n', 0x00}), 35U);
    EXPECT_EQ(type_of({0xFF, 0xFE, 0x00, 'a'}), 0U);
    EXPECT_EQ(type_of({0xFF, 0xFE, 'a', 0x00, 0x01, 0x00}), 0U);
    EXPECT_EQ(type_of({0xFE, 0xFF, 0x00, 'a'}), 36U);
    EXPECT_EQ(type_of({0xFE, 0xFF, 0x01, 'a', 0x00, '\n'}), 36U);
    EXPECT_EQ(type_of({0xFE, 0xFF, 'a', 0x00}), 0U);
    EXPECT_EQ(type_of({0xFE, 0xFF, 0x00, 'a', 0x00, 0x01}), 0U);
}

TEST(classify_text, a_low_byte_with_its_top_bit_set_is_accepted)
{
    for (const u8 low : bytes{0x80, 0x85, 0xA0, 0xFF}) {
        EXPECT_EQ(type_of({0xFF, 0xFE, low, 0x00}), 35U);
        EXPECT_EQ(type_of({0xFE, 0xFF, 0x00, low}), 36U);
    }
}

TEST(classify_text, half_a_unit_at_the_end_is_ignored)
{
    EXPECT_EQ(type_of({0xFF, 0xFE, 'a', 0x00, 0x01}), 35U);
    EXPECT_EQ(type_of({0xFE, 0xFF, 0x00, 'a', 0x01}), 36U);
}

TEST(classify_text, after_a_failed_utf16_test_the_others_follow)
{
    EXPECT_EQ(type_of({0xFF, 0xFE, 0x15, 0x40}), 39U); // in EBCDIC: FF FE, next line, space
}

// EBCDIC

TEST(classify_text, ebcdic_text)
{
    const bytes hello{0xC8, 0x85, 0x93, 0x93, 0x96, 0x40, 0xA6, 0x15}; // "Hello w", next line
    EXPECT_EQ(type_of(hello), 39U);
    bytes with_iso = hello;
    with_iso.push_back(0x41); // A0
    EXPECT_EQ(type_of(with_iso), 39U);
    bytes with_extended = hello;
    with_extended.push_back(0x20); // 80
    EXPECT_EQ(type_of(with_extended), 0U);
    bytes with_control = hello;
    with_control.push_back(0x01); // 01
    EXPECT_EQ(type_of(with_control), 0U);
}

TEST(classify_text, ebcdic_capitals_without_line_ends_are_taken_for_iso_8859)
{
    EXPECT_EQ(type_of({0xC8, 0xC5, 0xD3, 0xD3, 0xD6}), 37U);
}

// Names

u32 type_of_name(const std::string& name)
{
    return classify_name(name);
}

TEST(classify_name, all_extensions)
{
    const std::vector<std::pair<u32, const char*>> rows{
        {32, "txt rtf toc mbx cbf cbg cpp csv dat dcu def dic ini inf lng mdb pas log"},
        {34, "xml htm php"},
        {11, "doc"},
        {12, "hlp"},
        {4, "dll exe ocx drv sys"},
        {7, "jpg jpeg"},
        {3, "chm"},
        {25, "3dm gadget gif gz jar odt tgz svgz sis swf zip"},
        {17, "pdf"},
        {18, "png"},
        {2, "bmp rgb tif tiff tga wbm wbmp"},
        {10, "mp3"},
        {23, "aif aiff au pcm snd wav wave"},
        {24, "xls"},
        {20, "psd mov"},
        {15, "ogg"},
        {19, "pps"},
        {21, "save"}};
    usize found = 0;
    for (const auto& [type, extensions] : rows) {
        std::istringstream words(extensions);
        for (std::string extension; words >> extension; ++found) {
            EXPECT_EQ(type_of_name("name." + extension), type) << extension;
            EXPECT_EQ(type_of_name("name." + extension + "x"), 0U) << extension;
        }
    }
    EXPECT_EQ(found + 2, extension_table.size()) << "all but the empty row and 'c'";
}

TEST(classify_name, extensions_are_case_insensitive)
{
    EXPECT_EQ(type_of_name("NAME.TXT"), 32U);
    EXPECT_EQ(type_of_name("name.jPeG"), 7U);
    EXPECT_EQ(type_of_name("name.GZ"), 25U);
    EXPECT_EQ(type_of_name("name.EX\xC5"), 0U);
}

TEST(classify_name, an_extension_of_one_letter_is_unknown)
{
    EXPECT_EQ(type_of_name("source.c"), 0U);
    EXPECT_EQ(type_of_name("source.C"), 0U);
    EXPECT_EQ(type_of_name("a.txt.c"), 0U);
}

TEST(classify_name, names_without_a_known_extension)
{
    for (const char* const name :
         {"", ".", "name", "name.", "txt", "name.txt.", "name.unknown", "name.txt ", "name.tx",
          "name.txtt", "x.abcdefghi", "x.abcdefghij", "x.abcdefghijk"}) {
        EXPECT_EQ(type_of_name(name), 0U) << name;
    }
}

TEST(classify_name, the_extension_starts_after_the_last_dot)
{
    EXPECT_EQ(type_of_name("archive.txt.gz"), 25U);
    EXPECT_EQ(type_of_name("setup.exe.txt"), 32U);
    EXPECT_EQ(type_of_name(".txt"), 32U);
    EXPECT_EQ(type_of_name("..txt"), 32U);
}

TEST(classify_name, an_extension_contains_no_separator)
{
    const std::string separator(1, path_separator);
    EXPECT_EQ(type_of_name("dir.txt" + separator + "name"), 0U);
    EXPECT_EQ(type_of_name("a.exe" + separator), 0U);
    EXPECT_EQ(type_of_name("a.exe" + separator + "txt"), 0U);
    EXPECT_EQ(type_of_name("dir.d" + separator + "name.exe"), 4U);
    EXPECT_EQ(type_of_name("dir" + separator + ".exe"), 4U);
}

TEST(classify_text, equals_the_plain_classifier)
{
    const std::vector<bytes> starts{{}, {0xEF, 0xBB, 0xBF}, {0xFF, 0xFE}, {0xFE, 0xFF}, {0xC3}};
    const std::vector<bytes> alphabets{
        {'a', '\n', 0xC3, 0xA9},
        {'a', 0xE2, 0x82, 0xAC, 0x80},
        {'a', 0x01, 0xC3, 0xA9},
        {'a', 0, 'b', 0, 0xFF, 0x04},
        {0x40, 0xC1, 0xA9, 0x15, 0x25},
        {'a', 0x85, 0x9F, 0xA0, 0xFF},
        {'a', 0xC3, 0xA9, 0xF0, 0xF8, 0xFC, 0xFE, 0xBF, 0x15, 0x40, 0x7F},
    };
    test::random_source random(1);
    std::array<u32, 40> found{};
    for (int i = 0; i < 200000; ++i) {
        bytes sample = starts[random.below(static_cast<u32>(starts.size()))];
        const bytes& alphabet = alphabets[random.below(static_cast<u32>(alphabets.size()))];
        const u32 letters = 1 + random.below(static_cast<u32>(alphabet.size()));
        for (u32 left = random.below(9); left != 0; --left)
            sample.push_back(alphabet[random.below(letters)]);
        ASSERT_EQ(type_of(sample), test::plain_text_type(sample)) << testing::PrintToString(sample);
        ++found[type_of(sample)];
    }
    for (u32 type = 32; type <= 39; ++type) EXPECT_GT(found[type], 100U) << type;
    EXPECT_GT(found[0], 100U);
}

TEST(classify_text, a_zero_anywhere_makes_the_data_binary)
{
    for (const usize size : {16383U, 16384U, 16385U, 100000U}) {
        bytes sample = test::find_shape("text").make(size, 1);
        EXPECT_EQ(type_of(sample), 32U);
        for (const usize index : {usize{0}, size / 2, size - 1}) {
            bytes binary = sample;
            binary[index] = 0;
            EXPECT_EQ(type_of(binary), 0U) << size << ' ' << index;
        }
    }
}

// Files

file_parameters parameters_of(const bytes& sample, const std::string& name, u8 lit_ctx_bits = 0)
{
    file_parameters parameters;
    parameters.codec.lit_ctx_bits = lit_ctx_bits;
    parameters.filter_flags = 0x7F;
    classify_file(sample, name, parameters);
    return parameters;
}

void expect_parameters(const bytes& sample, const std::string& name, u32 lit_ctx_bits,
                       u32 filter_flags)
{
    const file_parameters parameters = parameters_of(sample, name);
    EXPECT_EQ(parameters.codec.lit_ctx_bits, lit_ctx_bits) << name;
    EXPECT_EQ(parameters.filter_flags, filter_flags) << name;
}

const bytes text = bytes_of("a text\n");
const bytes binary{0x00, ' ', 0x01};

TEST(classify_file, a_text_file_with_extension_exe_gets_no_filter)
{
    expect_parameters(text, "name.exe", 8, 0);
}

TEST(classify_file, a_binary_file_is_typed_by_its_extension_in_any_case)
{
    expect_parameters(binary, "NAME.TXT", 8, 0);
}

TEST(classify_file, each_type_with_an_extension)
{
    expect_parameters(binary, "name.exe", 4, 1);
    expect_parameters(binary, "name.bmp", 3, 0);
    expect_parameters(binary, "name.chm", 2, 0);
    expect_parameters(binary, "name.jpg", 1, 0); // bit 7 of the row's flags is dropped
    expect_parameters(binary, "name.mp3", 2, 0);
    expect_parameters(binary, "name.doc", 1, 0);
    expect_parameters(binary, "name.hlp", 1, 0);
    expect_parameters(binary, "name.ogg", 2, 0);
    expect_parameters(binary, "name.pdf", 1, 0);
    expect_parameters(binary, "name.png", 1, 0);
    expect_parameters(binary, "name.pps", 1, 0);
    expect_parameters(binary, "name.mov", 1, 0);
    expect_parameters(binary, "name.save", 1, 0);
    expect_parameters(binary, "name.wav", 2, 0);
    expect_parameters(binary, "name.xls", 3, 0);
    expect_parameters(binary, "name.zip", 1, 0);
    expect_parameters(binary, "name.xml", 8, 0);
}

TEST(classify_file, each_kind_of_text)
{
    for (const bytes& sample :
         {bytes{}, text, bytes{0xEF, 0xBB, 0xBF, 'a'}, bytes{0xC3, 0xA9}, bytes{0xFF, 0xFE},
          bytes{0xFE, 0xFF}, bytes{'a', 0xE9, ' '}, bytes{'a', 0x82, ' '}, bytes{0xC1, 0x15}}) {
        expect_parameters(sample, "name.exe", 8, 0);
    }
}

TEST(classify_file, an_unknown_binary_gets_neither_context_bits_nor_a_filter)
{
    expect_parameters(binary, "name.unknown", 0, 0);
    expect_parameters(binary, "name.c", 0, 0);
    expect_parameters(binary, "name", 0, 0);
    expect_parameters(binary, "", 0, 0);
}

TEST(classify_file, given_context_bits_are_kept_and_capped_at_8)
{
    EXPECT_EQ(parameters_of(text, "name", 3).codec.lit_ctx_bits, 3);
    EXPECT_EQ(parameters_of(binary, "name.exe", 7).codec.lit_ctx_bits, 7);
    EXPECT_EQ(parameters_of(binary, "name", 9).codec.lit_ctx_bits, 8);
    EXPECT_EQ(parameters_of(binary, "name", 255).codec.lit_ctx_bits, 8);
}

TEST(classify_file, changes_nothing_else)
{
    file_parameters parameters{.codec = {.method = 5, .level = 7, .hash_bits = 20, .chain_bits = 6},
                               .block_mb = 16};
    classify_file(text, "name", parameters);
    EXPECT_EQ(parameters.codec.method, 5);
    EXPECT_EQ(parameters.codec.level, 7);
    EXPECT_EQ(parameters.block_mb, 16);
    EXPECT_EQ(parameters.codec.hash_bits, 20);
    EXPECT_EQ(parameters.codec.chain_bits, 6);
}

TEST(file_type_table, all_rows)
{
    const std::vector<u32> lit_ctx_bits{0, 8, 3, 2, 4, 3, 2, 1, 3, 2, 2, 1, 1, 2, 3, 2, 2, 1, 1, 1,
                                        1, 1, 0, 2, 3, 1, 1, 1, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8};
    const std::vector<std::pair<u32, u32>> alternatives{
        {7, 26}, {11, 27}, {17, 28}, {18, 29}, {25, 30}};
    ASSERT_EQ(file_type_table.size(), lit_ctx_bits.size());
    for (u32 number = 0; number < 40; ++number) {
        const file_type& type = file_type_table[number];
        EXPECT_EQ(type.lit_ctx_bits, lit_ctx_bits[number]) << number;
        EXPECT_EQ(type.flags & 0x7F, number == 4 ? 1 : 0) << number;
        const auto row = std::find_if(alternatives.begin(), alternatives.end(),
                                      [&](const auto& each) { return each.first == number; });
        EXPECT_EQ(type.alternative, row != alternatives.end() ? row->second : 0) << number;
    }
}

} // namespace
} // namespace quarnex
