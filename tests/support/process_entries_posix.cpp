#include "support/process_entries.h"

#include <filesystem>
#include <iterator>

namespace quarnex::test {
namespace {

usize count_entries(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<usize>(std::distance(begin(entries), end(entries)));
}

} // namespace

usize open_descriptors()
{
    return count_entries("/proc/self/fd");
}

usize running_threads()
{
    return count_entries("/proc/self/task");
}

} // namespace quarnex::test
