#include "support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>

namespace quarnex::test {

temp_dir::temp_dir()
{
    const bool memory = std::filesystem::is_directory("/dev/shm") && access("/dev/shm", W_OK) == 0;
    path_ = memory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    path_ += "/quarnex-test-XXXXXX";
    if (mkdtemp(path_.data()) == nullptr) std::abort();
}

temp_dir::~temp_dir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

void write_file(const std::string& name, const bytes& content)
{
    std::ofstream file(name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file) std::abort();
}

bytes read_file(const std::string& name)
{
    std::error_code missing;
    const auto size = std::filesystem::file_size(name, missing);
    bytes content(missing ? 0 : size);
    std::ifstream file(name, std::ios::binary);
    file.read(reinterpret_cast<char*>(content.data()),
              static_cast<std::streamsize>(content.size()));
    return content;
}

bool file_exists(const std::string& name)
{
    return std::filesystem::exists(name);
}

bytes to_bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

} // namespace quarnex::test
