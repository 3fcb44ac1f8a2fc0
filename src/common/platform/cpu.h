// common/platform/cpu.h - processor count and cache size
//
// Instruction set extensions: common/bit_instructions.h.
#pragma once

#include "common/types.h"

namespace quarnex {

/// Number of processors, at least 1.
u32 processor_count();

/// Size of the second-level cache in KiB as the CPUID instruction reports it; 0 without CPUID.
u32 second_level_cache_kib();

} // namespace quarnex
