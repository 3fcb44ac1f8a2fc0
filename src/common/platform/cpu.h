// common/platform/cpu.h - what the processors are (their instructions: common/bit_instructions.h)
#pragma once

#include "common/types.h"

namespace quarnex {

/// Number of processors, at least 1.
u32 processor_count();

/// Size of the second-level cache in KiB as the processor identifies it; 0 if it has no such
/// instruction.
u32 second_level_cache_kib();

} // namespace quarnex
