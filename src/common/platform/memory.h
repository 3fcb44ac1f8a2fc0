// common/platform/memory.h - large pages and reserved address space
#pragma once

#include "common/types.h"

namespace quarnex {

/// Upper bound on the address space of the process, in bytes.
u64 address_space();

/// Size of the pages that prefer_large_pages() requests.
inline constexpr usize large_page_size = usize{2} << 20;

/// Allocates memory, aligned to large_page_size where the system has large pages; null on failure.
/// Freed with free().
void* allocate_for_large_pages(usize size);

/// Asks the system to back the `size` bytes at `memory` by large pages, as far as whole ones fit.
/// Does nothing on systems without them.
void prefer_large_pages(void* memory, usize size);

/// Reserves `size` bytes of address space; null on failure.
void* reserve_memory(usize size);

/// Commits whole pages of a reservation; already committed ones are unchanged, new ones are zero.
/// A page takes memory when it is first touched.  Returns false if the system refuses.
[[nodiscard]] bool commit_memory(void* memory, usize size);

/// Discards the content of whole committed pages, and releases their memory where the system can.
/// They stay readable and writable.
void discard_memory(void* memory, usize size);

/// Releases a reservation of `size` bytes.
void release_memory(void* memory, usize size);

} // namespace quarnex
