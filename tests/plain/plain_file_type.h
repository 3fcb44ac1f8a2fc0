// plain/plain_file_type.h - the type of a text told test by test
//
// The judge of the real classifier, with which it shares the tables of bytes alone.
#pragma once

#include "support/shapes.h"

namespace quarnex::test {

/// The number of the type that a sample has by its content; 0 if it is no text.
u32 plain_text_type(const bytes& sample);

} // namespace quarnex::test
