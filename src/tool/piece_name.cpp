#include "tool/piece_name.h"

#include "tool/files.h"
#include "tool/targets.h"

#include <algorithm>

namespace tool {
namespace {

/// Largest number of digits of a number of pieces.
constexpr size_t max_digits = 18;

/// Reads a number of at least 1; returns 0 if `text` isn't one.
uint64_t read_number(const std::string& text)
{
    const auto is_digit = [](char character) { return character >= '0' && character <= '9'; };
    if (text.empty() || text.size() > max_digits ||
        !std::all_of(text.begin(), text.end(), is_digit))
        return 0;
    return std::stoull(text);
}

} // namespace

path name_of(const piece_name& piece)
{
    const std::string count = std::to_string(piece.count);
    std::string number = std::to_string(piece.number);
    number.insert(0, count.size() - std::min(count.size(), number.size()), '0');
    path name = piece.stem;
    return name += "." + number + "of" + count + ".qrx";
}

piece_name read_piece_name(const path& name)
{
    if (!has_suffix(name)) return {};
    const path stem = name.filename().stem();
    const std::string numbers = to_text(stem.extension());
    const size_t mark = numbers.find("of");
    if (mark == std::string::npos) return {};
    piece_name piece{stem.stem(), read_number(numbers.substr(1, mark - 1)),
                     read_number(numbers.substr(mark + 2))};
    if (piece.number > piece.count) piece.number = 0;
    return piece;
}

} // namespace tool
