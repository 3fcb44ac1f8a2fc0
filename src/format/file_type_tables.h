// format/file_type_tables.h - file types, extensions and byte classes
#pragma once

#include "common/types.h"
#include "format/filters.h"

#include <array>
#include <string_view>

namespace quarnex {

/// The types that content or names select; the other rows of file_type_table are unused.
enum type_number : u8 {
    type_unknown = 0,
    type_image = 2,
    type_chm = 3,
    type_executable = 4,
    type_jpeg = 7,
    type_mp3 = 10,
    type_doc = 11,
    type_hlp = 12,
    type_ogg = 15,
    type_pdf = 17,
    type_png = 18,
    type_pps = 19,
    type_psd = 20, // and video
    type_save = 21,
    type_sound = 23,
    type_xls = 24,
    type_packed = 25, // archives and other compressed data
    type_ascii = 32,
    type_utf8_marked = 33,
    type_utf8 = 34,
    type_utf16_little = 35,
    type_utf16_big = 36,
    type_iso_8859 = 37,
    type_extended_ascii = 38,
    type_ebcdic = 39,
};

struct file_type {
    u8 id; // index of the row
    u32 lit_ctx_bits;
    u8 flags;       // low seven bits: filter_flags; bit 7: the row has an alternative
    u8 alternative; // another type for the same files, 0 for none; unused
};

inline constexpr u8 type_has_alternative = 0x80;

inline constexpr std::array<file_type, 40> file_type_table{{
    {0, 0, 0, 0},          {1, 8, 0, 0},      {2, 3, 0, 0},      {3, 2, 0, 0},
    {4, 4, filter_x86, 0}, {5, 3, 0, 0},      {6, 2, 0, 0},      {7, 1, 0x80, 26},
    {8, 3, 0, 0},          {9, 2, 0, 0},      {10, 2, 0, 0},     {11, 1, 0x80, 27},
    {12, 1, 0, 0},         {13, 2, 0, 0},     {14, 3, 0, 0},     {15, 2, 0, 0},
    {16, 2, 0, 0},         {17, 1, 0x80, 28}, {18, 1, 0x80, 29}, {19, 1, 0, 0},
    {20, 1, 0, 0},         {21, 1, 0, 0},     {22, 0, 0, 0},     {23, 2, 0, 0},
    {24, 3, 0, 0},         {25, 1, 0x80, 30}, {26, 1, 0, 0},     {27, 1, 0, 0},
    {28, 8, 0, 0},         {29, 8, 0, 0},     {30, 8, 0, 0},     {31, 8, 0, 0},
    {32, 8, 0, 0},         {33, 8, 0, 0},     {34, 8, 0, 0},     {35, 8, 0, 0},
    {36, 8, 0, 0},         {37, 8, 0, 0},     {38, 8, 0, 0},     {39, 8, 0, 0},
}};
static_assert([] {
    for (usize i = 0; i < file_type_table.size(); ++i) {
        const file_type& type = file_type_table[i];
        const bool has_alternative = (type.flags & type_has_alternative) != 0;
        if (type.id != i || has_alternative != (type.alternative != 0)) return false;
    }
    return true;
}());

struct extension_row {
    std::string_view extension; // in lower case
    type_number type;
};

/// The first row with a name's extension decides.  Extensions of fewer than two letters are not
/// looked up, so the rows of "" and "c" are never found.
inline constexpr std::array<extension_row, 67> extension_table{{
    {"", type_unknown},

    {"txt", type_ascii},      {"rtf", type_ascii},      {"toc", type_ascii},
    {"mbx", type_ascii},      {"xml", type_utf8},       {"htm", type_utf8},
    {"php", type_utf8},       {"c", type_ascii},        {"cbf", type_ascii},
    {"cbg", type_ascii},      {"cpp", type_ascii},      {"csv", type_ascii},
    {"dat", type_ascii},      {"dcu", type_ascii},      {"def", type_ascii},
    {"dic", type_ascii},      {"ini", type_ascii},      {"inf", type_ascii},
    {"lng", type_ascii},      {"mdb", type_ascii},      {"pas", type_ascii},
    {"log", type_ascii},

    {"doc", type_doc},        {"hlp", type_hlp},        {"dll", type_executable},
    {"exe", type_executable}, {"ocx", type_executable}, {"drv", type_executable},
    {"sys", type_executable}, {"jpg", type_jpeg},       {"jpeg", type_jpeg},
    {"chm", type_chm},        {"3dm", type_packed},     {"pdf", type_pdf},
    {"gadget", type_packed},  {"gif", type_packed},     {"gz", type_packed},
    {"jar", type_packed},     {"odt", type_packed},     {"png", type_png},
    {"tgz", type_packed},     {"svgz", type_packed},    {"sis", type_packed},
    {"swf", type_packed},     {"zip", type_packed},     {"bmp", type_image},
    {"rgb", type_image},      {"tif", type_image},      {"tiff", type_image},
    {"tga", type_image},      {"wbm", type_image},      {"wbmp", type_image},
    {"mp3", type_mp3},        {"aif", type_sound},      {"aiff", type_sound},
    {"au", type_sound},       {"pcm", type_sound},      {"snd", type_sound},
    {"wav", type_sound},      {"wave", type_sound},     {"xls", type_xls},
    {"psd", type_psd},        {"mov", type_psd},        {"ogg", type_ogg},
    {"pps", type_pps},        {"save", type_save},
}};
static_assert(extension_table.back().extension == "save"); // the table is full

/// Class of a byte in a text.
enum char_class : u8 { non_text = 0, plain_text = 1, iso_text = 2, extended_text = 3 };

inline constexpr auto text_chars = [] {
    std::array<char_class, 256> classes{};
    const auto set = [&](usize first, usize last, char_class value) {
        for (usize i = first; i <= last; ++i) classes[i] = value;
    };
    set(0x07, 0x0A, plain_text); // bell to line feed
    set(0x0C, 0x0D, plain_text); // form feed, carriage return
    set(0x1B, 0x1B, plain_text); // escape
    set(0x20, 0x7E, plain_text);
    set(0x80, 0x9F, extended_text);
    set(0x85, 0x85, plain_text); // next line
    set(0xA0, 0xFF, iso_text);
    return classes;
}();
// Below 0x80 a byte is plain text or non-text; from 0x80 on it is some kind of text.
static_assert([] {
    for (usize i = 0; i < text_chars.size(); ++i) {
        const char_class value = text_chars[i];
        if (i < 0x80 ? value > plain_text : value == non_text) return false;
    }
    return true;
}());
static_assert(text_chars[0x0B] == non_text && text_chars[0x7F] == non_text);

inline constexpr std::array<u8, 256> ebcdic_to_ascii{
    0x00, 0x01, 0x02, 0x03, 0x9C, 0x09, 0x86, 0x7F, 0x97, 0x8D, 0x8E, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F,
    0x10, 0x11, 0x12, 0x13, 0x9D, 0x85, 0x08, 0x87, 0x18, 0x19, 0x92, 0x8F, 0x1C, 0x1D, 0x1E, 0x1F,
    0x80, 0x81, 0x82, 0x83, 0x84, 0x0A, 0x17, 0x1B, 0x88, 0x89, 0x8A, 0x8B, 0x8C, 0x05, 0x06, 0x07,
    0x90, 0x91, 0x16, 0x93, 0x94, 0x95, 0x96, 0x04, 0x98, 0x99, 0x9A, 0x9B, 0x14, 0x15, 0x9E, 0x1A,
    0x20, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xD5, 0x2E, 0x3C, 0x28, 0x2B, 0x7C,
    0x26, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF, 0xB0, 0xB1, 0x21, 0x24, 0x2A, 0x29, 0x3B, 0x7E,
    0x2D, 0x2F, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6, 0xB7, 0xB8, 0xB9, 0xCB, 0x2C, 0x25, 0x5F, 0x3E, 0x3F,
    0xBA, 0xBB, 0xBC, 0xBD, 0xBE, 0xBF, 0xC0, 0xC1, 0xC2, 0x60, 0x3A, 0x23, 0x40, 0x27, 0x3D, 0x22,
    0xC3, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9,
    0xCA, 0x6A, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F, 0x70, 0x71, 0x72, 0x5E, 0xCC, 0xCD, 0xCE, 0xCF, 0xD0,
    0xD1, 0xE5, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0xD2, 0xD3, 0xD4, 0x5B, 0xD6, 0xD7,
    0xD8, 0xD9, 0xDA, 0xDB, 0xDC, 0xDD, 0xDE, 0xDF, 0xE0, 0xE1, 0xE2, 0xE3, 0xE4, 0x5D, 0xE6, 0xE7,
    0x7B, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0xE8, 0xE9, 0xEA, 0xEB, 0xEC, 0xED,
    0x7D, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x4F, 0x50, 0x51, 0x52, 0xEE, 0xEF, 0xF0, 0xF1, 0xF2, 0xF3,
    0x5C, 0x9F, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8, 0xF9,
    0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF};
// A permutation: guards against typing errors.
static_assert([] {
    std::array<bool, 256> seen{};
    for (const u8 byte : ebcdic_to_ascii) {
        if (seen[byte]) return false;
        seen[byte] = true;
    }
    return true;
}());
static_assert(ebcdic_to_ascii[0xC1] == 'A' && ebcdic_to_ascii[0xA9] == 'z' &&
              ebcdic_to_ascii[0xF0] == '0' && ebcdic_to_ascii[0x40] == ' ');

} // namespace quarnex
