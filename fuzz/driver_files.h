// fuzz/driver_files.h - source, destination and events of a driver, for targets that run drivers
#pragma once

#include "memory_file.h"
#include "support/event_recorder.h"

namespace quarnex::fuzz {

/// State that all runs of a target share.
struct driver_files {
    /// Discards the output of stdio, which libFuzzer and the sanitizers don't use.
    driver_files()
    {
        stdout = std::fopen("/dev/null", "w");
        stderr = stdout;
    }

    memory_file source;
    memory_file destination;
    test::event_recorder recorder;
};

} // namespace quarnex::fuzz
