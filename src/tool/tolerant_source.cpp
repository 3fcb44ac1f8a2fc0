#include "tool/tolerant_source.h"

#include <algorithm>
#include <cerrno>
#include <new>

namespace tool {
namespace {

/// Unit of repeated reads: systems read whole pages, even from disks with smaller sectors.
constexpr uint64_t page_bytes = 4096;

int read_tolerant(void* context, uint64_t offset, void* dest, size_t size, size_t* got)
{
    try {
        return static_cast<tolerant_source*>(context)->read(offset, static_cast<char*>(dest), size,
                                                            *got);
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

} // namespace

qrx_source tolerant_source::source()
{
    qrx_source made = inner_;
    made.read = read_tolerant;
    made.context = this;
    return made;
}

int tolerant_source::read(uint64_t offset, char* dest, size_t size, size_t& got)
{
    got = 0;
    if (offset >= inner_.size) return 0;
    size = static_cast<size_t>(std::min<uint64_t>(size, inner_.size - offset));
    const byte_range known = first_unreadable({offset, offset + size});
    if (known.first == known.last) {
        const int error = inner_.read(inner_.context, offset, dest, size, &got);
        if (error == 0 || error == ENOMEM) return error;
        got = 0;
    }
    while (got < size) {
        const uint64_t position = offset + got;
        const uint64_t left_in_page = page_bytes - position % page_bytes;
        const size_t part = static_cast<size_t>(std::min<uint64_t>(left_in_page, size - got));
        size_t count = 0;
        const int error = read_page(position, dest + got, part, count);
        got += count;
        if (error != 0 || count < part) return error;
    }
    return 0;
}

/// Reads within one page.
int tolerant_source::read_page(uint64_t offset, char* dest, size_t size, size_t& got)
{
    const byte_range known = first_unreadable({offset, offset + size});
    if (known.first == known.last) {
        const int error = inner_.read(inner_.context, offset, dest, size, &got);
        if (error == 0 || error == ENOMEM) return error;
        const uint64_t page = offset - offset % page_bytes;
        const uint64_t end = std::min(page + page_bytes, inner_.size);
        const auto next = unreadable_.lower_bound(page);
        if (next != unreadable_.begin() && std::prev(next)->second == page)
            std::prev(next)->second = end;
        else
            unreadable_[page] = end;
    }
    std::fill_n(dest, size, '\0');
    got = size;
    return 0;
}

byte_range tolerant_source::first_unreadable(const byte_range& range) const
{
    auto found = unreadable_.upper_bound(range.first);
    if (found != unreadable_.begin() && std::prev(found)->second > range.first) --found;
    if (found == unreadable_.end() || found->first >= range.last) return {range.last, range.last};
    return {std::max(found->first, range.first), std::min(found->second, range.last)};
}

} // namespace tool
