// tar_member.cpp - prints one member of a compressed tar file, by its name
//
//     c++ tar_member.cpp -lqrx && ./a.out ARCHIVE.tar.qrx MEMBER
//
// Reads the headers of the archive one by one and skips the content between them: blocks without a
// header or the member aren't decoded.  Understands ustar and GNU archives with names of up to 100
// characters.
#include <qrx.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

constexpr std::uint64_t record_size = 512;
using record = std::array<char, record_size>;

constexpr std::size_t name_size = 100;
constexpr std::size_t size_offset = 124;
constexpr std::size_t size_digits = 12;

struct close_reader {
    void operator()(qrx_reader* reader) const { qrx_reader_close(reader); }
};
using reader_ptr = std::unique_ptr<qrx_reader, close_reader>;

reader_ptr open(const std::string& name)
{
    qrx_reader* reader = nullptr;
    const qrx_status status = qrx_reader_open(&reader, name.c_str(), nullptr);
    if (status != QRX_OK) throw std::runtime_error(name + ": " + qrx_status_text(status));
    return reader_ptr(reader);
}

/// Reads a record.  Returns false at the end of the file.
bool read(qrx_reader* reader, std::uint64_t offset, record& dest)
{
    std::size_t got = 0;
    const qrx_status status = qrx_reader_read(reader, offset, dest.data(), dest.size(), &got);
    if (status != QRX_OK) throw std::runtime_error(qrx_status_text(status));
    return got == dest.size();
}

std::string name_of(const record& header)
{
    return {header.data(), strnlen(header.data(), name_size)};
}

std::uint64_t size_of(const record& header)
{
    const std::string digits(header.data() + size_offset, size_digits);
    return std::strtoull(digits.c_str(), nullptr, 8);
}

void print(qrx_reader* reader, std::uint64_t offset, std::uint64_t size)
{
    record piece{};
    for (; size != 0; offset += record_size) {
        if (!read(reader, offset, piece)) throw std::runtime_error("the archive ends too early");
        const std::uint64_t part = std::min(size, record_size);
        std::cout.write(piece.data(), static_cast<std::streamsize>(part));
        size -= part;
    }
}

/// Prints the first member called `name`.  Returns false if there is none.
bool print_member(qrx_reader* reader, const std::string& name)
{
    record header{};
    for (std::uint64_t at = 0; read(reader, at, header) && header[0] != 0;) {
        const std::uint64_t size = size_of(header);
        if (name_of(header) == name) {
            print(reader, at + record_size, size);
            return true;
        }
        at += record_size + (size + record_size - 1) / record_size * record_size;
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 3) throw std::runtime_error("usage: tar_member ARCHIVE.tar.qrx MEMBER");
    const reader_ptr reader = open(argv[1]);
    if (!print_member(reader.get(), argv[2])) throw std::runtime_error("no such member");
    return std::cout.flush() ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << "tar_member: " << error.what() << '\n';
    return 1;
}
