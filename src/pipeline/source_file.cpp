#include "pipeline/source_file.h"

#include <cerrno>
#include <cstring>

namespace quarnex {

source_file open_source(const std::string& name)
{
    source_file source(std::fopen(name.c_str(), "rb"));
    if (!source) {
        std::fprintf(stderr, "can't open input file '%s'. '%s'\n", name.c_str(),
                     std::strerror(errno));
    }
    return source;
}

std::shared_ptr<output_file> create_destination(const std::string& name)
{
    auto file = output_file::create(name);
    if (!file) {
        std::fprintf(stderr, "creat error '%s' '%s'\n", name.c_str(), std::strerror(errno));
    }
    return file;
}

} // namespace quarnex
