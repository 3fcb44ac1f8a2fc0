#include "plain/plain_filters.h"

namespace quarnex::test {
namespace {

constexpr bool status_of[8] = {true, true, true, false, true, false, false, false};
constexpr u32 bit_number_of[8] = {0, 1, 2, 2, 3, 3, 3, 3};

bool is_top_byte(u32 byte)
{
    return byte == 0x00 || byte == 0xFF;
}

} // namespace

bytes plain_x86_filter(const bytes& before, bool encoding)
{
    bytes data = before;
    if (data.size() <= 4) return data;
    const u32 position = 5;
    const u32 limit = static_cast<u32>(data.size()) - 4;
    u32 last = 0xFFFFFFFF;
    u32 mask = 0;
    u32 i = 0;
    for (;;) {
        while (i < limit && data[i] != 0xE8 && data[i] != 0xE9) ++i;
        if (i >= limit) return data;

        const u32 gap = i - last;
        if (gap >= 4) {
            mask = 0;
        } else {
            mask = (mask << (gap - 1)) & 7;
            if (mask != 0) {
                const u8 byte = data[i + 4 - bit_number_of[mask]];
                if (!status_of[mask] || is_top_byte(byte)) {
                    last = i;
                    mask = (mask & 3) * 2 + 1;
                    i = i + 1;
                    continue;
                }
            }
        }
        last = i;
        if (!is_top_byte(data[i + 4])) {
            mask = (mask & 3) * 2 + 1;
            i = i + 1;
            continue;
        }

        u32 src =
            data[i + 1] + data[i + 2] * 0x100U + data[i + 3] * 0x10000U + data[i + 4] * 0x1000000U;
        u32 dest = 0;
        for (;;) {
            dest = encoding ? src + (position + i) : src - (position + i);
            if (mask == 0) break;
            const u32 n = bit_number_of[mask] * 8;
            if (!is_top_byte(dest >> (24 - n) & 0xFF)) break;
            src = dest ^ static_cast<u32>((u64{1} << (32 - n)) - 1);
        }
        data[i + 1] = static_cast<u8>(dest & 0xFF);
        data[i + 2] = static_cast<u8>(dest >> 8 & 0xFF);
        data[i + 3] = static_cast<u8>(dest >> 16 & 0xFF);
        data[i + 4] = (dest >> 24 & 1) == 0 ? 0x00 : 0xFF;
        i = i + 5;
    }
}

bytes plain_delta_filter(const bytes& before, bool encoding)
{
    bytes data = before;
    u8 running[3] = {0, 0, 0}; // always the unfiltered data
    for (usize group = 0; group + 3 <= data.size(); group += 3) {
        for (usize k = 0; k < 3; ++k) {
            const u8 given = data[group + k];
            const int changed = encoding ? given - running[k] : given + running[k];
            data[group + k] = static_cast<u8>(changed);
            running[k] = encoding ? given : data[group + k];
        }
    }
    return data;
}

} // namespace quarnex::test
