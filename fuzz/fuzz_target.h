// fuzz/fuzz_target.h - the interface of a fuzz target
//
// A target consists of a function that accepts any bytes, and of seed inputs.  The function is
// called by libFuzzer (X_fuzz), and by replay_main.cpp with generated inputs (X_replay, which any
// compiler can build).  A target reports a fault by aborting the process.
#pragma once

#include "support/shapes.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace quarnex::fuzz {

using test::bytes;

/// Returns valid inputs of the target, the same in each run.
std::vector<bytes> make_seeds();

/// Aborts the process unless `holds`.  `requirement` says what must hold.
inline void require(bool holds, const char* requirement)
{
    if (holds) return;
    dprintf(STDERR_FILENO, "fuzz: violated: %s\n", requirement); // stderr may be silenced
    std::abort();
}

} // namespace quarnex::fuzz
