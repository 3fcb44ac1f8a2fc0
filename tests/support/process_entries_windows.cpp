#include "support/process_entries.h"

#include <cstdlib>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// tlhelp32.h needs windows.h first.
#include <tlhelp32.h>

namespace quarnex::test {

// GetProcessHandleCount() would include the handles of threads and synchronization objects.
usize open_descriptors()
{
    constexpr usize step = 4; // handles are multiples of 4
    constexpr usize max_handles = 4096;
    usize count = 0;
    for (usize value = step; value <= max_handles * step; value += step) {
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
