#include "pipeline/source_file.h"

#include "pipeline/progress.h"

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

bool has_failed(const source_file& source, const std::string& name)
{
    if (std::ferror(source.get()) == 0) return false;
    hide_progress();
    std::fprintf(stderr, "can't read input file '%s'. '%s'\n", name.c_str(), std::strerror(errno));
    return true;
}

} // namespace quarnex
