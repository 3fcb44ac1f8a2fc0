#include "pipeline/output_file.h"

#include <cstring>
#include <new>

namespace quarnex {

output_ref::output_ref(const output_ref& other) : file_(other.file_)
{
    if (file_ != nullptr) ++file_->owners_;
}

output_ref::~output_ref()
{
    if (file_ == nullptr || --file_->owners_ != 0) return;
    const return_memory free_memory = {file_->names_.get_deleter().source, sizeof(output_file)};
    file_->~output_file();
    free_memory(file_);
}

output_ref output_file::make(const allocator& source, const char* source_name, const char* out_name)
{
    const usize source_bytes = std::strlen(source_name) + 1;
    const usize out_bytes = std::strlen(out_name) + 1;
    owned_array<char> names = make_array<char>(source, source_bytes + out_bytes);
    if (!names) return {};
    void* const memory = source.allocate(source.context, sizeof(output_file), memory_kind::plain);
    if (memory == nullptr) return {};
    std::memcpy(names.get(), source_name, source_bytes);
    std::memcpy(names.get() + source_bytes, out_name, out_bytes);
    auto* const file = new (memory) output_file(std::move(names), source_bytes);
    ++file->owners_;
    return output_ref(file);
}

void output_file::fail(status reason)
{
    status none = status::done;
    failure_.compare_exchange_strong(none, reason);
}

} // namespace quarnex
