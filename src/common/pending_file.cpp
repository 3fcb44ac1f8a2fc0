#include "common/pending_file.h"

#include <cerrno>
#include <cstring>

namespace quarnex {
namespace {

constexpr usize digits_offset = 5; // in the pattern of temporary names
constexpr usize digit_count = 4;
constexpr u32 temporary_names = 1U << (4 * digit_count);

#ifdef _WIN32
constexpr const char* separators = "\\/:";
#else
constexpr const char* separators = "/";
#endif

usize directory_bytes_of(const char* name)
{
    usize bytes = 0;
    for (usize i = 0; name[i] != 0; ++i) {
        if (std::strchr(separators, name[i]) != nullptr) bytes = i + 1;
    }
    return bytes;
}

} // namespace

pending_file::~pending_file()
{
    discard();
}

void pending_file::discard()
{
    static_cast<void>(file.close());
    if (temporary_[0] != 0) directory_.remove(temporary_);
    temporary_[0] = 0;
    directory_.close();
}

int pending_file::create(const char* name)
{
    if (const int unfit = check_replaceable(name); unfit != 0) return unfit;
    const usize size = std::strlen(name) + 1;
    name_ = make_array<char>(source_, size);
    if (!name_) return ENOMEM;
    std::memcpy(name_.get(), name, size);
    directory_bytes_ = directory_bytes_of(name);
    const int error = open_directory(directory_bytes_);
    return error == 0 ? create_temporary() : error;
}

/// Opens the directory whose name is the first `bytes` of name_.
int pending_file::open_directory(usize bytes)
{
    const char next = name_[bytes];
    name_[bytes] = 0;
    const int error = directory_.open(bytes != 0 ? name_.get() : ".");
    name_[bytes] = next;
    return error;
}

int pending_file::create_temporary()
{
    char name[sizeof name_pattern];
    std::memcpy(name, name_pattern, sizeof name);
    int error = EEXIST;
    for (u32 number = 0; error == EEXIST && number < temporary_names; ++number) {
        for (u32 i = 0; i < digit_count; ++i)
            name[digits_offset + i] =
                "0123456789abcdef"[number >> (4 * (digit_count - 1 - i)) & 15];
        error = directory_.create_new(name, file);
    }
    if (error == 0) std::memcpy(temporary_, name, sizeof name);
    return error;
}

int pending_file::commit()
{
    int error = file.flush();
    if (const int closed = file.close(); error == 0) error = closed;
    if (error == 0) error = directory_.rename(temporary_, name_.get() + directory_bytes_);
    if (error == 0) temporary_[0] = 0; // renamed
    discard();
    return error;
}

} // namespace quarnex
