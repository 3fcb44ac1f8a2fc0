// support/captured_output.h - captures the output of the code under test
#pragma once

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace quarnex::test {

/// Captures standard output and standard error from construction to end().
class captured_output {
  public:
    captured_output()
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
    }
    ~captured_output() { end(); }
    captured_output(const captured_output&) = delete;
    captured_output& operator=(const captured_output&) = delete;

    void end()
    {
        if (ended_) return;
        ended_ = true;
        out_ = testing::internal::GetCapturedStdout();
        err_ = testing::internal::GetCapturedStderr();
    }
    const std::string& out()
    {
        end();
        return out_;
    }
    const std::string& err()
    {
        end();
        return err_;
    }

  private:
    bool ended_ = false;
    std::string out_;
    std::string err_;
};

/// Redirects standard output to standard error, for death tests.
inline void join_output_with_errors()
{
    std::fflush(stdout);
    if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) std::abort();
}

} // namespace quarnex::test
