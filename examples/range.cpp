// range.cpp - prints a range of the original of a .qrx file
//
//     c++ range.cpp -lqrx && ./a.out FILE.qrx OFFSET SIZE
//
// Only the blocks that contain the range are decoded.
#include <qrx.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

void check(qrx_status status)
{
    if (status != QRX_OK) throw std::runtime_error(qrx_status_text(status));
}

struct close_reader {
    void operator()(qrx_reader* reader) const { qrx_reader_close(reader); }
};
using reader_ptr = std::unique_ptr<qrx_reader, close_reader>;

reader_ptr open(const std::string& name)
{
    qrx_options options{};
    options.struct_size = sizeof options;
    options.threads = 2;
    qrx_reader* reader = nullptr;
    check(qrx_reader_open(&reader, name.c_str(), &options));
    return reader_ptr(reader);
}

void print_range(qrx_reader* reader, std::uint64_t offset, std::uint64_t size)
{
    std::vector<char> piece(std::size_t{1} << 20);
    while (size != 0) {
        std::size_t got = 0;
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size, piece.size()));
        const qrx_status status = qrx_reader_read(reader, offset, piece.data(), wanted, &got);
        std::cout.write(piece.data(), static_cast<std::streamsize>(got)); // valid even on failure
        check(status);
        if (got == 0) return; // the end of the file
        offset += got;
        size -= got;
    }
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc != 4) throw std::runtime_error("usage: range FILE.qrx OFFSET SIZE");
    const reader_ptr reader = open(argv[1]);
    print_range(reader.get(), std::stoull(argv[2]), std::stoull(argv[3]));
    return std::cout.flush() ? 0 : 1;
} catch (const std::exception& error) {
    std::cerr << "range: " << error.what() << '\n';
    return 1;
}
