// fuzz/json_fuzz.cpp - describes any file name and any fault as JSON, and parses it again
//
//     | length of the name: 1 | name | status: 1 | block: 4 | offset: 4 | wanted: 4 | system error:
//     1 | shift: 1 | original size: 4 | block size in MiB: 2 |
//
// The shift makes offset, wanted and original size larger, by up to 2^32.
#include "api_input.h"
#include "tool/describe.h"

namespace quarnex::fuzz {
namespace {

using tool::json;

/// Returns whether `text` is UTF-8: decodes each character and compares its encoding.
bool is_utf8(std::string_view text)
{
    while (!text.empty()) {
        const auto byte = [&](usize i) { return static_cast<u8>(text[i]); };
        const usize length = byte(0) < 0x80 ? 1 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
        if (text.size() < length) return false;
        u32 code = length == 1 ? byte(0) : byte(0) & (0x7FU >> length);
        for (usize i = 1; i < length; ++i) code = code << 6 | (byte(i) & 0x3FU);
        const u32 marks[]{0, 0, 0xC0, 0xE0, 0xF0};
        std::string encoded;
        for (usize i = 0; i < length; ++i) {
            const u32 bits = code >> (6 * (length - 1 - i));
            encoded += static_cast<char>(i == 0 ? bits | marks[length] : 0x80 | (bits & 0x3F));
        }
        const u32 smallest[]{0, 0, 0x80, 0x800, 0x10000};
        const bool is_surrogate = code >= 0xD800 && code < 0xE000;
        if (encoded != text.substr(0, length) || code < smallest[length] || code > 0x10FFFF ||
            is_surrogate)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

/// Requires that an object is printed as a line of ASCII, and returns the parsed line.
json read_back(const json& object)
{
    const std::string line = tool::json_line(object);
    const auto is_ascii = [](char c) { return c >= 0x20 && c < 0x7F; };
    require(std::all_of(line.begin(), line.end(), is_ascii), "JSON is printable ASCII");
    const json read = json::parse(line, nullptr, false);
    require(!read.is_discarded(), "JSON can be parsed");
    return read;
}

void check_name(const std::string& name)
{
    const json read = read_back({{"name", tool::json_name(name)}});
    const auto& shown = read.at("name").get_ref<const std::string&>();
    require(is_utf8(shown), "a name in JSON is UTF-8");
    require((shown == name) == is_utf8(name), "names in UTF-8 don't change");
    const std::string text = tool::printable(std::string_view(name));
    require(is_utf8(text) && std::none_of(text.begin(), text.end(),
                                          [](char c) { return u8(c) < 0x20 || c == 0x7F; }),
            "a name in a message is UTF-8 without control characters");
}

/// A file with consistent sizes, and a fault in it.
struct fault_input {
    qrx_event fault = sized<qrx_event>();
    qrx_info info = sized<qrx_info>();

    explicit fault_input(input_bytes& input)
    {
        fault.what = static_cast<qrx_status>(input.take() % (QRX_TRAILING_BYTES + 2));
        const u32 block = input.take(4);
        fault.offset = input.take(4);
        fault.wanted = input.take(4);
        fault.system_error = static_cast<int>(input.take());
        const u32 shift = input.take() % 33;
        info.original_size = u64{input.take(4)} << shift | shift;
        info.block_size = std::max(u64{input.take(2)}, u64{1}) << 20;
        info.block_count = std::min<u64>(info.original_size / info.block_size +
                                             (info.original_size % info.block_size != 0),
                                         UINT32_MAX);
        fault.offset <<= shift;
        fault.block =
            info.block_count != 0 && block != UINT32_MAX ? block % info.block_count : QRX_NO_BLOCK;
        fault.wanted = fault.block != QRX_NO_BLOCK
                           ? std::min<u64>(fault.wanted, info.block_count - fault.block)
                           : fault.wanted << shift;
    }
};

void check_fault(const fault_input& given)
{
    const json read = read_back(tool::json_fault(given.fault, given.info));
    require(read.at("what").is_string(), "a fault has a text");
    require(read.contains("file_offset") == (given.fault.offset != 0), "a fault has its offset");
    require(read.contains("block") == (given.fault.block != QRX_NO_BLOCK), "a fault has its block");
    if (read.contains("block")) {
        const u64 first = read.at("first").get<u64>();
        const u64 last = read.at("last").get<u64>();
        require(read.at("block").get<u64>() == given.fault.block, "the block doesn't change");
        require(first < last && last <= given.info.original_size, "a range is in the original");
    }
    const std::string text = tool::fault_text(given.fault, given.info);
    require(text.find('\n') == std::string::npos, "a fault is one line");
    const json ratio = read_back(tool::json_ratio(given.fault.offset, given.info.original_size));
    require(ratio.is_null() == (given.info.original_size == 0), "only empty files have no ratio");
}

void describe_any(input_bytes input)
{
    const std::span<const u8> name = input.take_bytes(input.take());
    const std::string text(name.begin(), name.end());
    check_name(text.substr(0, text.find('\0')));
    check_fault(fault_input(input));
}

bytes seed_of(const std::string& name, const bytes& fault)
{
    return test::joined({{static_cast<u8>(name.size())}, test::bytes_of(name), fault});
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for (const char* const name :
         {"", "a.qrx", "a\nb\"c\\d\x7F", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80.qrx", "\xFF\xFE\x80",
          "\xED\xA0\x80\xE2\x80\xAE\xC0\xAF\xF4\x90\x80\x80", "\xE2\x82"}) {
        for (u8 what = 0; what <= QRX_TRAILING_BYTES + 1; what += 3) {
            seeds.push_back(seed_of(name, {what, 1, 0, 0, 0,    9,    0,    0,    0, 2, 0,
                                           0,    0, 0, 4, 0xFF, 0xFF, 0xFF, 0x7F, 1, 0}));
            seeds.push_back(seed_of(name, {what, 0xFF, 0xFF, 0xFF, 0xFF, 9,    0,    0,    0, 2, 0,
                                           0,    0,    28,   4,    0xFF, 0xFF, 0xFF, 0x7F, 1, 0}));
        }
    }
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::describe_any(quarnex::fuzz::input_bytes({data, size}));
    return 0;
}
