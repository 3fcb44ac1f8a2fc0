// fuzz/driver_files.h - source, destination and events of a driver, for targets that run drivers
#pragma once

#include "memory_file.h"
#include "support/event_recorder.h"

#include <cstdio>

namespace quarnex::fuzz {

/// State that all runs of a target share.
struct driver_files {
    /// Discards the output of stdio, which libFuzzer and the sanitizers don't use.
    driver_files()
    {
        std::FILE* const discarded = std::fopen("/dev/null", "w");
        require(discarded != nullptr, "/dev/null can be opened");
        stdout = discarded;
        stderr = stdout;
    }

    memory_file source;
    memory_file destination;
    test::event_recorder recorder;
};

} // namespace quarnex::fuzz
