// support/captured_output.h - what the code under test prints
#pragma once

#include <gtest/gtest.h>
#include <string>

namespace quarnex::test {

/// Catches standard output and standard error from its start to end().
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

} // namespace quarnex::test
