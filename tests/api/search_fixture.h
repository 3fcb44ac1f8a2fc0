// api/search_fixture.h - files of several blocks, to be damaged and opened with QRX_SEARCH
#pragma once

#include "api/api_fixture.h"

namespace quarnex::test {

using block_list = std::vector<u32>;

inline constexpr u32 whole_blocks = 6;

/// A file of seven blocks, the last one short, and the extents of its records.
struct sample_file {
    explicit sample_file(u32 method = 2, u32 flags = 0, u32 context_bits = 0)
        : data(sample_data(whole_blocks))
    {
        qrx_params params = params_of(method, 1);
        params.context_bits = context_bits;
        image = compressed(data, params, flags);
        const reader_ptr reader = open_image(image);
        for (u32 block = 0; block < blocks(); ++block) {
            const block_in_image place = block_info_of(reader.get(), block);
            heads.push_back(place.offset - record_head_bytes);
            ends.push_back(place.offset + place.payload_size);
        }
    }

    u32 blocks() const { return whole_blocks + 1; }
    usize payload_size(u32 block) const { return ends[block] - heads[block] - record_head_bytes; }
    /// Returns the blocks whose payloads are unchanged in an image of the same size.
    block_list unchanged(const bytes& damaged) const
    {
        block_list rest;
        for (u32 block = 0; block < blocks(); ++block) {
            const usize begin = heads[block] + record_head_bytes;
            if (slice(image, begin, payload_size(block)) ==
                slice(damaged, begin, payload_size(block)))
                rest.push_back(block);
        }
        return rest;
    }
    block_list all() const { return unchanged(image); }
    block_list without(const block_list& lost) const
    {
        block_list rest = all();
        std::erase_if(rest, [&](u32 block) {
            return std::find(lost.begin(), lost.end(), block) != lost.end();
        });
        return rest;
    }

    bytes data;
    bytes image;
    std::vector<usize> heads;
    std::vector<usize> ends;
};

inline void set_size(bytes& image, usize head, usize size)
{
    for (usize i = 0; i < 4; ++i) image[head + i] = static_cast<u8>(size >> (8 * i));
}

inline bytes overwritten(bytes image, usize begin, usize count, u32 pattern)
{
    random_source random(pattern);
    for (usize at = begin; at < std::min(begin + count, image.size()); ++at) {
        const u8 old = image[at];
        image[at] = pattern == 0 ? 0 : static_cast<u8>(random.below(256));
        if (pattern == 1) image[at] = 0xFF;
        if (pattern == 2) image[at] = static_cast<u8>(~old);
    }
    return image;
}

/// Returns the blocks that can be read and are equal to the original.
inline block_list intact_blocks(qrx_reader* reader, const bytes& data)
{
    block_list intact;
    bytes block(mib);
    for (u32 index = 0; index * mib < data.size(); ++index) {
        usize size = 0;
        const qrx_status read = qrx_reader_block(reader, index, block.data(), mib, &size);
        if (read == QRX_OK && slice(block, 0, size) == slice(data, index * mib, mib))
            intact.push_back(index);
    }
    return intact;
}

inline block_list found_blocks(const qrx_reader* reader)
{
    block_list found;
    for (u32 block = 0; block < info_of(reader).block_count; ++block)
        if (block_info_of(reader, block).is_found != 0) found.push_back(block);
    return found;
}

/// Opens a damaged image in memory and through callbacks, and expects the same blocks to be intact.
inline void expect_intact(const bytes& image, const bytes& data, const block_list& expected)
{
    recorded_options options(0, QRX_SEARCH);
    const reader_ptr reader = open_image(image, &options);
    EXPECT_TRUE(options.events.empty()) << "opening reports nothing";
    EXPECT_EQ(intact_blocks(reader.get(), data), expected);
    EXPECT_NE(info_of(reader.get()).layout, QRX_OK);
    EXPECT_EQ(info_of(reader.get()).blocks_found, found_blocks(reader.get()).size());

    const qrx_source source{sizeof(qrx_source),
                            [](void* self, u64 offset, void* dest, usize size, usize* got) {
                                const bytes& file = *static_cast<const bytes*>(self);
                                EXPECT_LE(offset + size, file.size());
                                std::copy_n(file.begin() + static_cast<std::ptrdiff_t>(offset),
                                            size, static_cast<u8*>(dest));
                                *got = size;
                                return 0;
                            },
                            image.size(), const_cast<bytes*>(&image)};
    qrx_reader* opened = nullptr;
    ASSERT_EQ(qrx_reader_open_source(&opened, &source, &options), QRX_OK);
    const reader_ptr by_callbacks(opened);
    EXPECT_EQ(found_blocks(opened), found_blocks(reader.get()));
    for (const u32 block : found_blocks(opened))
        EXPECT_EQ(block_info_of(opened, block).offset, block_info_of(reader.get(), block).offset);
}

} // namespace quarnex::test
