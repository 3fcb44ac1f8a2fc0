#include "api/handle.h"

#include "pipeline/parameters.h"

#include <cstdlib>

namespace quarnex {

bool read_options(const qrx_options* given, qrx_options& options)
{
    options = {};
    if (given == nullptr) return true;
    if (!read_struct(given, options)) return false;
    const bool has_allocate = options.allocator.allocate != nullptr;
    const bool has_release = options.allocator.release != nullptr;
    return options.threads <= QRX_MAX_THREADS && has_allocate == has_release &&
           (options.flags & ~(QRX_SEAL | QRX_KEEP_DAMAGED)) == 0;
}

qrx_status to_qrx(status result)
{
    switch (result) {
    case status::done:
        return QRX_OK;
    case status::no_memory:
        return QRX_NO_MEMORY;
    case status::no_thread:
        return QRX_NO_THREAD;
    case status::source_unopened:
    case status::destination_uncreated:
    case status::too_many_files:
        return QRX_OPEN_FAILED;
    case status::read_failed:
        return QRX_READ_FAILED;
    case status::write_failed:
        return QRX_WRITE_FAILED;
    case status::not_qrx:
        return QRX_NOT_QRX;
    case status::truncated:
        return QRX_TRUNCATED;
    case status::corrupt:
        return QRX_CORRUPT;
    case status::stopped:
    case status::cancelled:
        return QRX_CANCELLED;
    case status::bad_argument:
        return QRX_BAD_ARGUMENT;
    case status::over_limit:
        return QRX_OVER_LIMIT;
    case status::too_small:
        return QRX_BUFFER_TOO_SMALL;
    case status::block_short:
        return QRX_BLOCK_SHORT;
    case status::inexact_end:
        return QRX_INEXACT_END;
    case status::block_missing:
        return QRX_BLOCK_MISSING;
    case status::block_repeated:
        return QRX_BLOCK_REPEATED;
    case status::trailing_bytes:
        return QRX_TRAILING_BYTES;
    case status::checksum_mismatch:
        return QRX_CHECKSUM_MISMATCH;
    }
    return QRX_BAD_ARGUMENT;
}

handle_services::handle_services(const qrx_options& options)
    : options_(options), memory_{allocate, release, this}
{
}

listener handle_services::watcher()
{
    return {options_.event != nullptr ? tell : nullptr,
            options_.progress != nullptr ? advance : nullptr, this};
}

void* handle_services::allocate(void* self, usize size, memory_kind kind)
{
    auto& handle = *static_cast<handle_services*>(self);
    const qrx_allocator& source = handle.options_.allocator;
    // Address space isn't memory, and a caller's allocator can't reserve it.
    if (kind == memory_kind::reserved)
        return system_allocator.allocate(system_allocator.context, size, kind);
    if (!handle.reserve(size)) return nullptr;
    void* memory = nullptr;
    if (source.allocate == nullptr) {
        memory = system_allocator.allocate(system_allocator.context, size, kind);
    } else {
        memory = source.allocate(source.context, size);
        if (memory != nullptr && kind == memory_kind::zeroed) std::memset(memory, 0, size);
    }
    if (memory == nullptr) handle.used_ -= size;
    return memory;
}

bool handle_services::reserve(u64 size)
{
    u64 used = used_;
    do {
        if (used > memory_limit() || size > memory_limit() - used) return false;
    } while (!used_.compare_exchange_weak(used, used + size));
    return true;
}

void handle_services::release(void* self, void* memory, usize size, memory_kind kind)
{
    auto& handle = *static_cast<handle_services*>(self);
    const qrx_allocator& source = handle.options_.allocator;
    if (kind != memory_kind::reserved) handle.used_ -= size;
    if (kind == memory_kind::reserved || source.allocate == nullptr)
        system_allocator.release(system_allocator.context, memory, size, kind);
    else
        source.release(source.context, memory, size);
}

void handle_services::tell(void* self, const notice& found)
{
    const qrx_options& options = static_cast<handle_services*>(self)->options_;
    const qrx_event event = {sizeof event, to_qrx(found.what), found.cause, found.block,
                             found.offset, found.wanted,       found.got};
    options.event(options.context, &event);
}

bool handle_services::advance(void* self, u64 done, u64 total)
{
    const qrx_options& options = static_cast<handle_services*>(self)->options_;
    return options.progress(options.context, done, total) == 0;
}

} // namespace quarnex
