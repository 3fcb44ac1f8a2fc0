// support/system_differences.h - expectations that differ between systems
#pragma once

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>

namespace quarnex::test {

#if defined(_WIN32)
/// A device that discards all data written and reads as empty.
inline constexpr const char* null_device = "NUL";
/// errno for opening a directory as a file.
inline constexpr int errno_of_directory = EACCES;
/// The status of a program that ends abnormally, as run_program() returns it.
inline constexpr int status_of_abnormal_end = 3;
/// The status of exit(-1), for EXPECT_EXIT.
inline constexpr int status_of_exit_minus_1 = -1;
/// Predicate for EXPECT_EXIT: the process ended abnormally.
inline const testing::ExitedWithCode ended_abnormally(status_of_abnormal_end);
#else
inline constexpr const char* null_device = "/dev/null";
inline constexpr int errno_of_directory = EISDIR;
inline constexpr int status_of_abnormal_end = 128 + SIGABRT;
inline constexpr int status_of_exit_minus_1 = 255;
inline const testing::KilledBySignal ended_abnormally(SIGABRT);
#endif

} // namespace quarnex::test
