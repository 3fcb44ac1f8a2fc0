#include "api/handle.h"

#include "pipeline/parameters.h"

#include <array>
#include <cstdlib>
#include <utility>

namespace quarnex {

bool read_options(const qrx_options* given, qrx_options& options)
{
    options = {};
    if (given == nullptr) return true;
    if (!read_struct(given, options)) return false;
    const bool has_allocate = options.allocator.allocate != nullptr;
    const bool has_release = options.allocator.release != nullptr;
    return options.threads <= QRX_MAX_THREADS && has_allocate == has_release &&
           (options.flags & ~(QRX_SEAL | QRX_KEEP_DAMAGED | QRX_SEARCH)) == 0;
}

/// By status.
constexpr std::array qrx_statuses{
    std::pair{status::done, QRX_OK},
    std::pair{status::no_memory, QRX_NO_MEMORY},
    std::pair{status::no_thread, QRX_NO_THREAD},
    std::pair{status::source_unopened, QRX_OPEN_FAILED},
    std::pair{status::read_failed, QRX_READ_FAILED},
    std::pair{status::destination_uncreated, QRX_OPEN_FAILED},
    std::pair{status::write_failed, QRX_WRITE_FAILED},
    std::pair{status::too_many_files, QRX_OPEN_FAILED},
    std::pair{status::not_qrx, QRX_NOT_QRX},
    std::pair{status::truncated, QRX_TRUNCATED},
    std::pair{status::corrupt, QRX_CORRUPT},
    std::pair{status::stopped, QRX_CANCELLED},
    std::pair{status::skipped, QRX_CANCELLED},
    std::pair{status::cancelled, QRX_CANCELLED},
    std::pair{status::bad_argument, QRX_BAD_ARGUMENT},
    std::pair{status::over_limit, QRX_OVER_LIMIT},
    std::pair{status::too_small, QRX_BUFFER_TOO_SMALL},
    std::pair{status::block_short, QRX_BLOCK_SHORT},
    std::pair{status::inexact_end, QRX_INEXACT_END},
    std::pair{status::block_missing, QRX_BLOCK_MISSING},
    std::pair{status::block_repeated, QRX_BLOCK_REPEATED},
    std::pair{status::trailing_bytes, QRX_TRAILING_BYTES},
    std::pair{status::checksum_mismatch, QRX_CHECKSUM_MISMATCH},
};
static_assert([] {
    for (usize i = 0; i < qrx_statuses.size(); ++i) {
        if (qrx_statuses[i].first != static_cast<status>(i)) return false;
    }
    return qrx_statuses.back().first == last_status;
}());

qrx_status to_qrx(status result)
{
    return qrx_statuses[static_cast<usize>(result)].second;
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
