#include "image_input.h"

#include "support/qrx_file.h"

#include <cstring>
#include <utility>

namespace quarnex::fuzz {
namespace {

// Offsets in the header.
constexpr usize size_offset = 4;
constexpr usize block_mib_offset = 18;

} // namespace

void bound_sizes(const header_bounds& bounds, bytes& image)
{
    if (image.size() < test::header_bytes) return;
    u64 size = 0;
    std::memcpy(&size, &image[size_offset], sizeof size);
    if (bounds.original_size) size %= max_data + 1;
    std::memcpy(&image[size_offset], &size, sizeof size);
    if (!bounds.block_size) return;
    image[block_mib_offset] = 1;
    image[block_mib_offset + 1] = 0;
}

std::vector<bytes> several_blocks()
{
    test::qrx_file file = test::swapped_file();
    std::vector<bytes> images{test::build_qrx(file)};
    images.push_back(test::joined({images[0], {1, 2, 3, 4}})); // a wrong seal
    images.push_back(test::joined({images[0], {1, 2, 3}}));
    images.emplace_back(images[0].begin(), images[0].end() - 3);
    std::swap(file.records[0], file.records[1]);
    images.push_back(test::build_qrx(file)); // the second record has block -1
    file.records[1].displacement = test::displacement_of(0);
    file.records[0].displacement = test::displacement_of(0);
    images.push_back(test::build_qrx(file));
    file.records[1].displacement = test::displacement_of(-1);
    images.push_back(test::build_qrx(file)); // block 0 twice, no block 1
    file.header.block_mb = 4096;
    file.header.original_size = u64{8} << 30;
    images.push_back(test::build_qrx(file));
    return images;
}

std::vector<bytes> damaged_files()
{
    std::vector<bytes> images;
    for (const usize offset : {usize{32}, usize{32 + 5 + 14}, usize{12}, usize{4}, usize{0}}) {
        bytes image = test::build_qrx(test::swapped_file());
        for (usize i = 0; i < (offset == 0 ? 100U : 5U); ++i) image.at(offset + i) ^= 0xFF;
        images.push_back(image);
    }
    return images;
}

} // namespace quarnex::fuzz
