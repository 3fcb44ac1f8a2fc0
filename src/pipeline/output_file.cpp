#include "pipeline/output_file.h"

#include "common/platform.h"

#include <utility>

namespace quarnex {

output_file::output_file(std::string name, std::FILE* stream)
    : out_name(std::move(name)), stream_(stream)
{
    std::setvbuf(stream_, nullptr, _IONBF, 0);
}

std::shared_ptr<output_file> output_file::create(const std::string& name)
{
    std::FILE* const stream = std::fopen(name.c_str(), "wb");
    if (stream == nullptr) return nullptr;
    return std::shared_ptr<output_file>(new output_file(name, stream));
}

output_file::~output_file()
{
    if (stream_ != nullptr) std::fclose(stream_);
}

bool output_file::write(const u8* from, usize size)
{
    return std::fwrite(from, 1, size, stream_) == size;
}

bool output_file::seek(u64 offset)
{
    return seek_file(stream_, offset);
}

bool output_file::close()
{
    std::FILE* const stream = std::exchange(stream_, nullptr);
    return std::fclose(stream) == 0;
}

} // namespace quarnex
