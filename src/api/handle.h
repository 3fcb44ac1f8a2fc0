// api/handle.h - structures, options, memory and callbacks, shared by all handles of the C
// interface
#pragma once

#include "common/allocator.h"
#include "format/file_parameters.h"
#include "pipeline/notices.h"
#include "qrx.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace quarnex {

/// Copies a structure from a caller whose version of the header may be older or newer.  Fields that
/// the caller's version lacks become zero.  Returns false if the size is invalid, or if fields are
/// set that this version lacks.
template <class Struct>
[[nodiscard]] bool read_struct(const Struct* given, Struct& known)
{
    known = {};
    if (given == nullptr || given->struct_size < sizeof given->struct_size) return false;
    const usize size = given->struct_size;
    const u8* const bytes = reinterpret_cast<const u8*>(given);
    for (usize i = sizeof(Struct); i < size; ++i) {
        if (bytes[i] != 0) return false;
    }
    std::memcpy(&known, given, size < sizeof(Struct) ? size : sizeof(Struct));
    known.struct_size = sizeof(Struct);
    return true;
}

/// Copies to a caller's structure as many fields as it has; fields that only the caller's version
/// has become zero.  Returns false if its size is invalid.
template <class Struct>
[[nodiscard]] bool write_struct(const Struct& known, Struct* given)
{
    if (given == nullptr || given->struct_size < sizeof given->struct_size) return false;
    const usize size = given->struct_size;
    std::memcpy(given, &known, size < sizeof(Struct) ? size : sizeof(Struct));
    if (size > sizeof(Struct))
        std::memset(reinterpret_cast<u8*>(given) + sizeof(Struct), 0, size - sizeof(Struct));
    given->struct_size = size;
    return true;
}

/// Copies and checks options; null means the defaults.
[[nodiscard]] bool read_options(const qrx_options* given, qrx_options& options);

/// Copies, checks and settles parameters; null means the defaults.
[[nodiscard]] bool read_parameters(const qrx_params* given, file_parameters& parameters);

/// Fills in a caller's parameters.
[[nodiscard]] bool give_parameters(const file_parameters& parameters, qrx_params* given);

qrx_status to_qrx(status result);

/// The options of a handle, as an allocator and a listener for the engine.
class handle_services {
  public:
    explicit handle_services(const qrx_options& options);
    handle_services(const handle_services&) = delete;
    handle_services& operator=(const handle_services&) = delete;

    const qrx_options& options() const { return options_; }
    bool has_flag(u32 flag) const { return (options_.flags & flag) != 0; }
    damage_rules rules() const { return {has_flag(QRX_KEEP_DAMAGED), has_flag(QRX_SEARCH)}; }
    u64 memory_limit() const
    {
        return options_.memory_limit != 0 ? options_.memory_limit : UINT64_MAX;
    }
    /// An allocator that takes memory from the caller's, up to the memory limit.
    const allocator& memory() const { return memory_; }
    /// A listener that calls the caller's callbacks.
    listener watcher();
    /// Counts `size` bytes that were allocated without memory().
    void count(u64 size) { used_ += size; }
    qrx_status report(const notice& found) { return to_qrx(watcher().report(found)); }

  private:
    /// Counts `size` bytes; returns false if that would exceed the memory limit.
    bool reserve(u64 size);
    static void* allocate(void* self, usize size, memory_kind kind);
    static void release(void* self, void* memory, usize size, memory_kind kind);
    static void tell(void* self, const notice& found);
    static bool advance(void* self, u64 done, u64 total);

    const qrx_options options_;
    const allocator memory_;
    std::atomic<u64> used_{0}; // bytes allocated
};

/// Constructs a Handle in memory from the options' allocator; null without memory.
template <class Handle, class... Arguments>
[[nodiscard]] Handle* make_handle(const qrx_options& options, const Arguments&... arguments)
{
    const qrx_allocator& source = options.allocator;
    void* const memory = source.allocate != nullptr
                             ? source.allocate(source.context, sizeof(Handle))
                             : std::malloc(sizeof(Handle));
    if (memory == nullptr) return nullptr;
    Handle* const handle = new (memory) Handle(options, arguments...);
    handle->services.count(sizeof(Handle));
    return handle;
}

template <class Handle>
void free_handle(Handle* handle)
{
    if (handle == nullptr) return;
    const qrx_allocator source = handle->services.options().allocator;
    handle->~Handle();
    if (source.allocate != nullptr)
        source.release(source.context, handle, sizeof(Handle));
    else
        std::free(handle);
}

/// Sets `*out` to the handle if `result` is QRX_OK; otherwise frees it.
template <class Handle>
qrx_status hand_out(Handle* handle, Handle** out, qrx_status result)
{
    if (result != QRX_OK) {
        free_handle(handle);
        handle = nullptr;
    }
    *out = handle;
    return result;
}

} // namespace quarnex
