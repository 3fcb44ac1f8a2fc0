// schedules/shim.h - delays threads at random where they synchronize; makes system calls fail
//
// The linker redirects calls of pthread_mutex_lock(), write() and others here (--wrap); the shim
// forwards them to the C library or the thread sanitizer.  Each thread has a random generator of
// its own, seeded with the seed of the run and the number of the thread.
#pragma once

#include "common/types.h"

namespace quarnex::test {

/// Calls that can fail.
enum class failing_call : u8 { none, open, read, write, close, start_thread };

/// Starts a run: threads are delayed until end_run().  A run of more than `max_seconds` counts
/// as hung: the process prints what its threads do and ends.
void begin_run(u64 seed, u32 max_seconds);
void end_run();

/// Makes call number `number` of a kind, counted from 1, fail.  At most one call fails.
void fail_call(failing_call kind, u32 number);
/// Returns whether a call has failed since the last fail_call().
bool call_failed();

/// Returns how many lock points all threads have passed so far.
u64 passed_points();

/// Prints the seed of the run and what is wrong, and ends the process.
[[noreturn]] void report_fault(const char* what);

/// A fault of the product unless `holds`.
inline void check(bool holds, const char* what)
{
    if (!holds) report_fault(what);
}

} // namespace quarnex::test
