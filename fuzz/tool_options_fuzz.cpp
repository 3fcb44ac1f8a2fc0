// fuzz/tool_options_fuzz.cpp - parses any command line of qrx
//
//     | kind: 1 | text |
//
// The kind selects what the text is: words, each ended by a NUL, the first one the program's name;
// a size; a range; or the name of a piece.  Sizes and ranges are compared with a plain parser.
#include "captured_text.h"
#include "tool/options.h"
#include "tool/piece_name.h"

#include <algorithm>
#include <optional>
#include <span>

namespace quarnex::fuzz {
namespace {

enum kind : u8 { words, size, range, piece, kinds };

using word_list = std::vector<std::string>;

word_list split(const std::string& text)
{
    word_list found;
    for (usize at = 0; at < text.size();) {
        const usize end = std::min(text.find('\0', at), text.size());
        found.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return found;
}

void check(const tool::options& parsed)
{
    require(parsed.threads <= QRX_MAX_THREADS, "the number of threads is in range");
    require(parsed.params.method >= 1 && parsed.params.method <= 5, "the method is in range");
    require(parsed.params.level <= 9, "the level is in range");
    require(parsed.params.block_mib <= 2047, "the block size is in range");
    require(parsed.range.first <= parsed.range.last, "a range ends after its start");
    require(parsed.piece_count <= UINT32_MAX && parsed.piece_blocks <= UINT32_MAX &&
                (parsed.piece_count == 0 || parsed.piece_blocks == 0),
            "pieces are counted in one way");
    require(std::all_of(parsed.cells.begin(), parsed.cells.end(),
                        [](int cell) { return cell >= 10 && cell <= 59; }),
            "cells are in range");
    require(parsed.min_seconds >= 0 && parsed.min_seconds <= 3600, "the time is in range");
    require(!parsed.to_stdout || parsed.output.empty(), "there is one output");
    require(parsed.verbosity >= -1 && parsed.verbosity <= 1, "the verbosity is in range");
}

/// Parses a command line; requires a message if it is refused and none if it isn't.
std::optional<tool::options> parse(const word_list& line)
{
    captured_text output(stdout);
    captured_text errors(stderr);
    int status = -1;
    const auto parsed = tool::read_command_line(line, status);
    const std::string message = errors.text();
    if (parsed) {
        require(message.empty() && output.text().empty(), "a valid command line prints nothing");
        check(*parsed);
    } else if (status == tool::exit_good) {
        require(message.empty() && !output.text().empty(), "help is printed");
    } else {
        require(status == tool::exit_failed, "a usage error has status 1");
        require(output.text().empty() && are_messages(message) &&
                    std::count(message.begin(), message.end(), '\n') == 1,
                "a usage error has one message");
    }
    return parsed;
}

/// Reads a size, one character at a time.
std::optional<u64> plain_size(const std::string& text)
{
    constexpr u64 limit = UINT64_MAX;
    u64 value = 0;
    usize at = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        const u64 digit = static_cast<u64>(text[at] - '0');
        if (value > (limit - digit) / 10) return {};
        value = value * 10 + digit;
    }
    if (at == 0) return {};
    if (at == text.size()) return value;
    const std::string_view units = "KMGTkmgt";
    const usize unit = units.find(text[at]);
    const std::string end = text.substr(at + 1);
    if (unit == std::string_view::npos || (!end.empty() && end != "B" && end != "iB")) return {};
    for (usize times = unit % 4 + 1; times != 0; --times) {
        if (value > limit / 1024) return {};
        value *= 1024;
    }
    return value;
}

std::optional<tool::byte_range> plain_range(const std::string& text)
{
    const usize mark = text.find_first_of(":+");
    if (mark == std::string::npos) return {};
    const std::string before = text.substr(0, mark);
    const std::string after = text.substr(mark + 1);
    const auto first = before.empty() ? u64{0} : plain_size(before);
    const auto last = after.empty() && text[mark] == ':' ? UINT64_MAX : plain_size(after);
    if (!first || !last) return {};
    if (text[mark] == '+')
        return tool::byte_range{*first, *last > UINT64_MAX - *first ? UINT64_MAX : *first + *last};
    if (*last < *first) return {};
    return tool::byte_range{*first, *last};
}

void compare_size(const std::string& text)
{
    const auto expected = plain_size(text);
    const auto parsed = parse({"qrx", "--memory-limit", text, "name"});
    require(parsed.has_value() == expected.has_value(), "sizes are accepted or refused");
    require(!parsed || parsed->memory_limit == *expected, "a size is read");
}

void compare_range(const std::string& text)
{
    const auto expected = plain_range(text);
    const auto parsed = parse({"qrx", "cat", "--range", text, "name"});
    require(parsed.has_value() == expected.has_value(), "ranges are accepted or refused");
    require(!parsed ||
                (parsed->range.first == expected->first && parsed->range.last == expected->last),
            "a range is read");
}

void check_piece(const std::string& text)
{
    const tool::piece_name piece = tool::read_piece_name(text);
    require(piece.number <= piece.count, "a piece is one of all");
    if (piece.number == 0) return;
    const tool::piece_name again = tool::read_piece_name(tool::name_of(piece));
    require(again.stem == piece.stem && again.number == piece.number && again.count == piece.count,
            "the name of a piece can be read again");
}

void parse_any(std::span<const u8> input)
{
    if (input.empty()) return;
    const std::string text(input.begin() + 1, input.end());
    const std::string name = text.substr(0, text.find('\0'));
    switch (input[0] % kinds) {
    case words: {
        parse(split(text));
        break;
    }
    case size:
        return compare_size(name);
    case range:
        return compare_range(name);
    default:
        return check_piece(name);
    }
}

bytes seed_of(kind what, const std::string& text)
{
    return test::joined({{what}, test::bytes_of(text)});
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    for (const char* const line : {"qrx -k9 a b",
                                   "qrx -d --rm -T2 -C dir a.qrx",
                                   "qrx -c33 -b64 a",
                                   "unqrx -t a",
                                   "qrxcat a",
                                   "qrx cat --range=1M:2M a",
                                   "qrx split -n 7 -o x a",
                                   "qrx split --blocks=3 a",
                                   "qrx join -o a b c",
                                   "qrx bench --cells 33,58 --seconds .1 --plot p.svg a",
                                   "qrx recover -f a",
                                   "qrx verify --against a b",
                                   "qrx info --test --json a",
                                   "qrx -h",
                                   "qrx cat -h",
                                   "qrx -V",
                                   "qrx --like x --level 5 a",
                                   "qrx -qv --no-seal --no-sync -r -- -a",
                                   "qrx --memory-limit 500M --threads=0 -l a",
                                   "qrx -99",
                                   "qrx --level=60 a",
                                   "qrx -b2048 a",
                                   "qrx -o '' a",
                                   "qrx --output= a",
                                   "qrx list -- test"}) {
        std::string text = line;
        std::replace(text.begin(), text.end(), ' ', '\0');
        seeds.push_back(seed_of(words, text));
    }
    for (const char* const text : {"0", "4096", "64K", "2g", "3MiB", "5kB", "18446744073709551615",
                                   "18446744073709551616", "16777215T", "16777216T", "", "K", "1x"})
        seeds.push_back(seed_of(size, text));
    for (const char* const text : {"1:2", ":", "5:", ":7", "4M+64K", "2:1",
                                   "1+18446744073709551615", "+1", "1+", "1:2:3", "12"})
        seeds.push_back(seed_of(range, text));
    for (const char* const text : {"a.03of12.qrx", "a.1of1.QRX", "x/a.b.2of3.qrx", "a.0of3.qrx",
                                   "a.4of3.qrx", "of.qrx", ".1of2.qrx", "a.1of.qrx"})
        seeds.push_back(seed_of(piece, text));
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::parse_any({data, size});
    return 0;
}
