#include "support/process_entries.h"

#include <cstdlib>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// behind it:
#include <tlhelp32.h>

namespace quarnex::test {

// The system's own count has the handles of threads, and of what they wait for, among those.
usize open_descriptors()
{
    constexpr usize step = 4; // the lowest bits of a handle mean nothing
    constexpr usize looked_at = 4096;
    usize count = 0;
    for (usize value = step; value <= looked_at * step; value += step) {
        if (GetFileType(reinterpret_cast<HANDLE>(value)) == FILE_TYPE_DISK) ++count;
    }
    return count;
}

usize running_threads()
{
    const HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (all == INVALID_HANDLE_VALUE) std::abort();
    usize count = 0;
    THREADENTRY32 thread{};
    thread.dwSize = sizeof(thread);
    for (BOOL more = Thread32First(all, &thread); more != 0; more = Thread32Next(all, &thread)) {
        if (thread.th32OwnerProcessID == GetCurrentProcessId()) ++count;
    }
    CloseHandle(all);
    return count;
}

} // namespace quarnex::test
