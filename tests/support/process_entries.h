// support/process_entries.h - what this process holds at the moment
#pragma once

#include "common/types.h"

namespace quarnex::test {

/// How many files and directories are open; on Linux pipes and the like are among them.
usize open_descriptors();

usize running_threads();

} // namespace quarnex::test
