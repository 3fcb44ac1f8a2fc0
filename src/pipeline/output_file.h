// pipeline/output_file.h - a destination while its blocks are on their way
//
// Shared by the driver, the blocks in flight and the writer: the last of them closes and frees it.
// What has been written stays written whatever becomes of the process, and a write that fails is
// noticed at once.
#pragma once

#include "common/owned_array.h"
#include "common/platform/file.h"
#include "pipeline/displacement_window.h"
#include "pipeline/status.h"

#include <atomic>
#include <utility>

namespace quarnex {

class output_file;

/// One of the owners of an output_file, or of none.
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
    /// A file that is not created yet; null without memory for it.  The names are copied.
    static output_ref make(const allocator& source, const char* source_name, const char* out_name);

    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    /// The name of the file that it is made from.
    const char* source_name() const { return names_.get(); }
    const char* out_name() const { return names_.get() + out_name_; }

    /// Notes that no complete file can come of it.  The first reason stands.
    void fail(status reason);
    /// Why the file has failed, or that it hasn't.
    status failure() const { return failure_; }
    bool failed() const { return failure() != status::done; }

    /// The file itself.  Only one thread at a time uses it: the driver up to the first block, then
    /// the writer.
    system_file file;
    /// The order of the records, when compressing.
    displacement_window window;

  private:
    friend class output_ref;
    output_file(owned_array<char> names, usize out_name)
        : names_(std::move(names)), out_name_(out_name)
    {
    }
    ~output_file() = default;

    owned_array<char> names_; // of the source and of this file, each with its NUL
    usize out_name_;
    std::atomic<u32> owners_{0};
    std::atomic<status> failure_{status::done};
};

} // namespace quarnex
