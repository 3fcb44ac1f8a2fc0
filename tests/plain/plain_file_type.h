// plain/plain_file_type.h - reference implementation of text classification
//
// Applies the tests one after another.  Shares only the byte class tables with the real classifier.
#pragma once

#include "support/shapes.h"

namespace quarnex::test {

/// The type number of a sample by its content; 0 if it is not text.
u32 plain_text_type(const bytes& sample);

} // namespace quarnex::test
