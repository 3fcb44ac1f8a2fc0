// format/file_type.h - what kind of file is compressed
//
// The content is asked first, as it doesn't lie: is it a text, and in which encoding?  If it is
// none, the extension of the name decides.  The kind selects two numbers of the file's header: how
// many literal context bits the codecs use, and the pre-filter.
#pragma once

#include "format/file_parameters.h"
#include "format/file_type_tables.h"

#include <span>
#include <string_view>

namespace quarnex {

/// The type of a text, or type_unknown if `sample` is none.  A sequence that the sample's end cuts
/// off is no fault, and doesn't count as one.
type_number classify_text(std::span<const u8> sample);

/// The type that belongs to the extension of a file's name (with or without its path), or
/// type_unknown.
type_number classify_name(std::string_view name);

/// Sets filter_flags, and lit_ctx_bits unless there are some, by a file's first bytes and its name.
void classify_file(std::span<const u8> sample, std::string_view name, file_parameters& parameters);

} // namespace quarnex
