#include "support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>

namespace quarnex::test {
namespace {

std::string system_temp_directory()
{
    return std::filesystem::temp_directory_path().string();
}

} // namespace

temp_dir::temp_dir()
{
    std::random_device random;
    for (const std::string& parent : {std::string("/dev/shm"), system_temp_directory()}) {
        for (int attempt = 0; attempt < 10; ++attempt) {
            const std::string name = "/quarnex-test-" + std::to_string(random());
            path_ = std::filesystem::absolute(parent).string() + name;
            std::error_code refused;
            if (std::filesystem::create_directory(path_, refused)) return;
        }
    }
    std::abort();
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
    bytes content(missing ? 0 : static_cast<usize>(size));
    std::ifstream file(name, std::ios::binary);
    file.read(reinterpret_cast<char*>(content.data()),
              static_cast<std::streamsize>(content.size()));
    return content;
}

bool file_exists(const std::string& name)
{
    return std::filesystem::exists(name);
}

} // namespace quarnex::test
