#include "common/pending_file.h"

#include <cerrno>
#include <cstring>

namespace quarnex {
namespace {

// Independent of the final name, which may already be as long as the file system allows.  The
// hexadecimal digits are counted up until the name is free.
constexpr const char* temporary_name = ".qrx-0000.tmp";
constexpr usize digits_offset = 5;
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
    if (temporary_) remove_file(temporary_.get());
    temporary_.reset();
}

int pending_file::create(const char* name)
{
    if (const int unfit = check_replaceable(name); unfit != 0) return unfit;
    const usize size = std::strlen(name) + 1;
    const usize directory_bytes = directory_bytes_of(name);
    name_ = make_array<char>(source_, size);
    temporary_ = make_array<char>(source_, directory_bytes + std::strlen(temporary_name) + 1);
    int error = ENOMEM;
    if (name_ && temporary_) {
        std::memcpy(name_.get(), name, size);
        error = create_temporary(name, directory_bytes);
    }
    if (error != 0) temporary_.reset(); // no file to remove
    return error;
}

int pending_file::create_temporary(const char* name, usize directory_bytes)
{
    char* const base = temporary_.get() + directory_bytes;
    std::memcpy(temporary_.get(), name, directory_bytes);
    std::memcpy(base, temporary_name, std::strlen(temporary_name) + 1);
    int error = EEXIST;
    for (u32 number = 0; error == EEXIST && number < temporary_names; ++number) {
        for (u32 i = 0; i < digit_count; ++i)
            base[digits_offset + i] =
                "0123456789abcdef"[number >> (4 * (digit_count - 1 - i)) & 15];
        error = file.create_new(temporary_.get());
    }
    return error;
}

int pending_file::commit()
{
    int error = file.flush();
    if (const int closed = file.close(); error == 0) error = closed;
    if (error == 0) error = rename_file(temporary_.get(), name_.get());
    if (error == 0) temporary_.reset(); // renamed
    discard();
    return error;
}

} // namespace quarnex
