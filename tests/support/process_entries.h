// support/process_entries.h - what this process holds at the moment
#pragma once

#include "common/types.h"

#include <filesystem>
#include <iterator>

namespace quarnex::test {

inline usize count_entries(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<usize>(std::distance(begin(entries), end(entries)));
}

inline usize open_descriptors()
{
    return count_entries("/proc/self/fd");
}

inline usize running_threads()
{
    return count_entries("/proc/self/task");
}

} // namespace quarnex::test
