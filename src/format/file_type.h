// format/file_type.h - file type detection
//
// A sample of the content is tested for text in a number of encodings, by the sets of byte values
// that each allows: one pass over the sample, O(n), stopped early in most binary files.  If it is
// not text, the extension of the name decides.  The type selects two parameters of the file: the
// number of literal context bits and the pre-filter.
#pragma once

#include "format/file_parameters.h"
#include "format/file_type_tables.h"

#include <span>
#include <string_view>

namespace quarnex {

/// The type of a text; type_unknown if `sample` is not text.  A UTF-8 sequence truncated by the
/// sample's end is not an error, but does not make the text UTF-8.
type_number classify_text(std::span<const u8> sample);

/// The type of a file name's extension (with or without a path); type_unknown if it is not listed.
type_number classify_name(std::string_view name);

/// Sets filter_flags, and lit_ctx_bits if it is 0, from a file's first bytes and its name.
void classify_file(std::span<const u8> sample, std::string_view name, file_parameters& parameters);

} // namespace quarnex
