// fuzz/fuzz_target.h - what a fuzz target is
//
// A target is one function over any bytes, and the inputs to start from.  libFuzzer calls it
// (X_fuzz), and so does replay_main.cpp with inputs of its own making (X_replay), which needs no
// special compiler.  A target tells of a fault by ending the process.
#pragma once

#include "support/shapes.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace quarnex::fuzz {

using test::bytes;

/// Valid inputs of the target, the same in each run.
std::vector<bytes> make_seeds();

/// Ends the process unless `holds`.
inline void require(bool holds, const char* what)
{
    if (holds) return;
    dprintf(STDERR_FILENO, "fuzz: not so: %s\n", what); // the stream may be silenced
    std::abort();
}

} // namespace quarnex::fuzz
