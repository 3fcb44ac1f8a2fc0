#include "plain/plain_range_coder.h"

namespace quarnex::test {

void plain_range_coder::narrow(u32 start, u32 width)
{
    low += start;
    range = width;
    while (range <= 0xFFFFFF) {
        range <<= 8;
        shift_low();
    }
}

void plain_range_coder::direct(u32 value, u32 count)
{
    const u32 unit = range >> count;
    narrow(value * unit, unit);
}

void plain_range_coder::shift_low()
{
    if (low >> 24 == 0xFF) {
        ++pending;
    } else {
        const u64 carry = low >> 32;
        out.push_back(static_cast<u8>(cache + carry));
        for (; pending > 0; --pending) out.push_back(static_cast<u8>(0xFF + carry));
        cache = static_cast<u8>(low >> 24);
    }
    low = (low << 8) & 0xFFFFFFFF;
}

void plain_range_coder::flush()
{
    for (u32 i = 0; i < 5; ++i) shift_low();
}

plain_range_reader::plain_range_reader(const bytes& stream, usize start) : in(stream), at(start)
{
    for (u32 i = 0; i < 5; ++i) code = code << 8 | in.at(at++);
}

void plain_range_reader::narrow(u32 start, u32 width)
{
    code -= start;
    range = width;
    while (range <= 0xFFFFFF) {
        range <<= 8;
        code = code << 8 | in.at(at++);
    }
}

u32 plain_range_reader::direct(u32 count)
{
    const u32 unit = range >> count;
    const u32 value = code / unit;
    narrow(value * unit, unit);
    return value;
}

} // namespace quarnex::test
