// support/exclusive_file.h - a file opened without sharing (Windows)
#pragma once

#include <cstdlib>
#include <string>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace quarnex::test {

/// Keeps an existing file open without sharing, so that no one else can open it.
class exclusive_file {
  public:
    explicit exclusive_file(const std::string& name)
        : handle_(CreateFileA(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr))
    {
        if (handle_ == INVALID_HANDLE_VALUE) std::abort();
    }
    ~exclusive_file() { CloseHandle(handle_); }
    exclusive_file(const exclusive_file&) = delete;
    exclusive_file& operator=(const exclusive_file&) = delete;

  private:
    HANDLE handle_;
};

} // namespace quarnex::test
