// support/process_entries.h - counts the descriptors and threads of this process
#pragma once

#include "common/types.h"

namespace quarnex::test {

/// Returns the number of open files and directories; on Linux also pipes and other descriptors.
usize open_descriptors();

usize running_threads();

} // namespace quarnex::test
