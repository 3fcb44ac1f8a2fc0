#include "support/shapes.h"

#include "common/bytes.h"
#include "support/mib.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace quarnex::test {

u32 random_source::next()
{
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<u32>(state_ * 0x2545F4914F6CDD1DU >> 32);
}

namespace {

bytes random_bytes(usize size, u64 seed)
{
    random_source random(seed);
    bytes data(size);
    for (u8& byte : data) byte = static_cast<u8>(random.next());
    return data;
}

bytes zeros(usize size, u64 /*seed*/)
{
    return bytes(size);
}

bytes runs(usize size, u64 seed)
{
    random_source random(seed);
    bytes data;
    while (data.size() < size) {
        data.insert(data.end(), 1 + random.below(1U << random.below(10)),
                    static_cast<u8>(random.below(4)));
    }
    data.resize(size);
    return data;
}

bytes periodic(usize size, usize period, u64 seed)
{
    bytes data = random_bytes(std::min(size, period), seed);
    data.reserve(size);
    while (data.size() < size) data.push_back(data[data.size() - period]);
    return data;
}

bytes short_period(usize size, u64 seed)
{
    return periodic(size, 1 + static_cast<usize>(seed % 37), seed);
}
bytes long_period(usize size, u64 seed)
{
    return periodic(size, 9000 + static_cast<usize>(seed % 70000), seed);
}

bytes text(usize size, u64 seed)
{
    random_source random(seed);
    std::vector<std::string> words(600);
    for (std::string& word : words) {
        for (u32 n = 1 + random.below(9); n != 0; --n)
            word += static_cast<char>('a' + random.below(26));
    }
    bytes data;
    while (data.size() < size) {
        // Small indexes are more likely, like frequent words in a text.
        const u32 rank = random.below(1 + random.below(static_cast<u32>(words.size())));
        data.insert(data.end(), words[rank].begin(), words[rank].end());
        data.push_back(random.below(12) == 0 ? '\n' : ' ');
    }
    data.resize(size);
    return data;
}

bytes records(usize size, u64 seed)
{
    random_source random(seed);
    bytes data;
    u32 key = 0;
    while (data.size() < size) {
        std::array<u8, 24> record{};
        key += random.below(3);
        store_u32(record.data(), key);
        store_u16(&record[8], static_cast<u16>(random.below(50)));
        record[15] = static_cast<u8>(random.below(2));
        store_u32(&record[20], random.next());
        data.insert(data.end(), record.begin(), record.end());
    }
    data.resize(size);
    return data;
}

bytes machine_code(usize size, u64 seed)
{
    random_source random(seed);
    static constexpr std::array<u8, 12> opcodes{0xE8, 0xE9, 0x8B, 0x89, 0x0F, 0x83,
                                                0x48, 0x90, 0xFF, 0x00, 0x74, 0xC3};
    bytes data;
    while (data.size() < size) {
        const u8 opcode = opcodes[random.below(opcodes.size())];
        data.push_back(opcode);
        if (opcode <= 0xE9 && opcode >= 0xE8) {
            std::array<u8, 4> target;
            store_u32(target.data(), random.below(1 << 16) - (random.below(2) << 15));
            data.insert(data.end(), target.begin(), target.end());
        } else {
            data.push_back(static_cast<u8>(random.below(64)));
        }
    }
    data.resize(size);
    return data;
}

bytes fibonacci_word(usize size, u64 /*seed*/)
{
    bytes shorter{'b'};
    bytes data{'a'};
    while (data.size() < size) {
        bytes longer = data;
        longer.insert(longer.end(), shorter.begin(), shorter.end());
        shorter = std::move(data);
        data = std::move(longer);
    }
    data.resize(size);
    return data;
}

bytes thue_morse_word(usize size, u64 /*seed*/)
{
    bytes data(size);
    for (usize i = 0; i < size; ++i) data[i] = std::popcount(i) % 2 == 0 ? 'a' : 'b';
    return data;
}

/// De Bruijn sequence: every 16-bit string once, from a shift register, packed into bytes.
bytes de_bruijn(usize size, u64 seed)
{
    bytes data(size);
    u32 state = static_cast<u32>(seed % 65535) + 1;
    for (u8& byte : data) {
        for (int bit = 0; bit < 8; ++bit) {
            byte = static_cast<u8>(u32{byte} << 1 | (state & 1));
            state = state >> 1 ^ ((state & 1) != 0 ? 0xB400U : 0);
        }
    }
    return data;
}

bytes two_symbols(usize size, u64 seed)
{
    random_source random(seed);
    bytes data(size);
    for (u8& byte : data) byte = random.below(2) == 0 ? 'x' : 'y';
    return data;
}

/// Pieces of the other shapes and copies of earlier ones.
bytes mixture(usize size, u64 seed)
{
    random_source random(seed);
    bytes data;
    while (data.size() < size) {
        const usize length = 1 + random.below(1U << random.below(14));
        if (!data.empty() && random.below(3) == 0) {
            const usize from = random.below(static_cast<u32>(data.size()));
            for (usize i = 0; i < length; ++i) data.push_back(data[from + i]);
        } else {
            const auto& shapes = all_shapes();
            const shape& part = shapes[random.below(static_cast<u32>(shapes.size()) - 1)];
            const bytes piece = part.make(length, random.next());
            data.insert(data.end(), piece.begin(), piece.end());
        }
    }
    data.resize(size);
    return data;
}

} // namespace

const std::vector<shape>& all_shapes()
{
    static const std::vector<shape> shapes{
        {"random", random_bytes},
        {"zeros", zeros},
        {"runs", runs},
        {"short_period", short_period},
        {"long_period", long_period},
        {"text", text},
        {"records", records},
        {"machine_code", machine_code},
        {"fibonacci", fibonacci_word},
        {"thue_morse", thue_morse_word},
        {"de_bruijn", de_bruijn},
        {"two_symbols", two_symbols},
        {"mixture", mixture}, // last: it is made of the others
    };
    return shapes;
}

const shape& find_shape(const std::string& name)
{
    for (const shape& candidate : all_shapes()) {
        if (candidate.name == name) return candidate;
    }
    std::abort();
}

bytes text_in_each_block(usize size, usize text_size, u64 seed)
{
    bytes content(size);
    for (usize start = 0; start < size; start += mib) {
        const bytes text = find_shape("text").make(std::min(size - start, text_size), seed++);
        std::copy(text.begin(), text.end(), content.begin() + static_cast<std::ptrdiff_t>(start));
    }
    return content;
}

} // namespace quarnex::test
