// common/platform/memory.h - large pages and address space
#pragma once

#include "common/types.h"

namespace quarnex {

/// Bytes of address space that the process can have at most.
u64 address_space();

/// Size of the pages that prefer_large_pages() asks for.
inline constexpr usize large_page_size = usize{2} << 20;

/// Returns memory for free(), aligned to large_page_size where the system has large pages; null if
/// there is none.
void* allocate_for_large_pages(usize size);

/// Asks the system to keep the `size` bytes at `memory` in large pages, as far as whole ones fit.
/// Does nothing where it has none.
void prefer_large_pages(void* memory, usize size);

/// Reserves `size` bytes of address space; null if the system refuses.
void* reserve_memory(usize size);

/// Makes whole pages of a reservation usable if they aren't yet; new ones are zero.  They take no
/// memory until they are touched.  Returns false if the system has none to promise.
[[nodiscard]] bool commit_memory(void* memory, usize size);

/// Gives up the content of whole committed pages and, where the system can, their memory.  They can
/// still be read and written.
void discard_memory(void* memory, usize size);

/// Ends a reservation of `size` bytes.
void release_memory(void* memory, usize size);

} // namespace quarnex
