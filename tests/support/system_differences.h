// support/system_differences.h - what tests expect of one system and not of another
#pragma once

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>

namespace quarnex::test {

#if defined(_WIN32)
/// Takes all that is written and has nothing to read.
inline constexpr const char* null_device = "NUL";
/// Why a directory can't be opened as a file.
inline constexpr int errno_of_directory = EACCES;
/// The status of a program that ends abnormally, as run_program() tells it.
inline constexpr int status_of_abnormal_end = 3;
/// The status of exit(-1), for EXPECT_EXIT.
inline constexpr int status_of_exit_minus_1 = -1;
/// For EXPECT_EXIT: whether the process has ended abnormally.
inline const testing::ExitedWithCode ended_abnormally(status_of_abnormal_end);
#else
inline constexpr const char* null_device = "/dev/null";
inline constexpr int errno_of_directory = EISDIR;
inline constexpr int status_of_abnormal_end = 128 + SIGABRT;
inline constexpr int status_of_exit_minus_1 = 255;
inline const testing::KilledBySignal ended_abnormally(SIGABRT);
#endif

} // namespace quarnex::test
