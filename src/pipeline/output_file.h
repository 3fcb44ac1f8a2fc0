// pipeline/output_file.h - a destination file shared by its blocks in flight
//
// Reference-counted by the driver, the jobs in flight and the writer; the last owner closes and
// frees it.  Writes are unbuffered: data written stays written if the process dies, and a write
// error is noticed immediately.
#pragma once

#include "common/owned_array.h"
#include "common/platform/file.h"
#include "pipeline/displacement_window.h"
#include "pipeline/status.h"

#include <atomic>
#include <utility>

namespace quarnex {

class output_file;

/// Counted reference to an output_file; may be empty.
class output_ref {
  public:
    output_ref() = default;
    output_ref(const output_ref& other);
    output_ref(output_ref&& other) noexcept : file_(std::exchange(other.file_, nullptr)) {}
    output_ref& operator=(output_ref other) noexcept
    {
        std::swap(file_, other.file_);
        return *this;
    }
    ~output_ref();

    explicit operator bool() const { return file_ != nullptr; }
    output_file& operator*() const { return *file_; }
    output_file* operator->() const { return file_; }
    bool operator==(const output_ref& other) const { return file_ == other.file_; }

  private:
    friend class output_file;
    explicit output_ref(output_file* file) : file_(file) {}
    output_file* file_ = nullptr;
};

class output_file {
  public:
    /// Returns an object for a file that is not created yet, or an empty reference when memory is
    /// exhausted.  The names are copied.
    static output_ref make(const allocator& source, const char* source_name, const char* out_name);

    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    /// Returns the name of the source.
    const char* source_name() const { return names_.get(); }
    const char* out_name() const { return names_.get() + out_name_; }

    /// Marks the file as failed.  Only the first reason is kept.
    void fail(status reason);
    /// Returns why the file failed, or status::done.
    status failure() const { return failure_; }
    bool failed() const { return failure() != status::done; }

    /// The open file.  Used by one thread at a time: the driver until the first block is submitted,
    /// then the writer; or, for a small file, the worker that got it.
    system_file file;
    /// Limits how far records can be out of order, when compressing.
    displacement_window window;

  private:
    friend class output_ref;
    output_file(owned_array<char> names, usize out_name)
        : names_(std::move(names)), out_name_(out_name)
    {
    }
    ~output_file() = default;

    owned_array<char> names_; // source name, destination name, each with its NUL
    usize out_name_;
    std::atomic<u32> owners_{0};
    std::atomic<status> failure_{status::done};
};

} // namespace quarnex
