#include "tool/console.h"

#include "tool/files.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tool {
namespace {

int output_error = 0; // the first write error of standard output

/// Returns the length of the UTF-8 sequence of a printable character at the start of `text`; 0 if
/// there is none.
size_t printable_length(std::string_view text)
{
    const auto byte = [&](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
    uint32_t code = lead & (0xFFU >> (length + 1));
    for (size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0U) != 0x80) return 0;
        code = code << 6 | (byte(index) & 0x3FU);
    }
    constexpr std::array<uint32_t, 5> smallest{0, 0, 0xA0, 0x800, 0x10000}; // 80 to 9F are controls
    const bool is_surrogate = code >= 0xD800 && code <= 0xDFFF;
    // Marks that change the direction of the text around them.
    const bool is_direction = (code >= 0x202A && code <= 0x202E) ||
                              (code >= 0x2066 && code <= 0x2069) || code == 0x200E ||
                              code == 0x200F || code == 0x2028 || code == 0x2029;
    return code < smallest[length] || code > 0x10FFFF || is_surrogate || is_direction ? 0 : length;
}

void print_message(const std::string& text)
{
    std::fprintf(stderr, "qrx: %s\n", text.c_str());
}

std::string with_name(const path& name, std::string_view text)
{
    return (is_stdio(name) ? std::string("(standard stream)") : printable(name)) + ": " +
           std::string(text);
}

} // namespace

std::string printable(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const size_t length = printable_length(text);
        if (length == 0) {
            std::array<char, 8> escape;
            std::snprintf(escape.data(), escape.size(), "\\x%02x",
                          static_cast<unsigned>(static_cast<unsigned char>(text[0])));
            shown += escape.data();
        } else {
            shown += text.substr(0, length);
        }
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return shown;
}

std::string printable(const path& name)
{
    return printable(std::string_view(to_text(name)));
}

std::string system_error_text(int error)
{
    return error != 0 ? std::strerror(error) : "unknown error";
}

std::string size_text(uint64_t bytes)
{
    constexpr std::array<const char*, 7> units{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    size_t unit = 0;
    auto value = static_cast<double>(bytes);
    while (value >= 999.95 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text.data();
}

std::string sizes_text(uint64_t original, uint64_t compressed, double seconds)
{
    const auto size = static_cast<double>(original);
    std::array<char, 128> text;
    std::snprintf(text.data(), text.size(), "%s -> %s (%.3f), %.0f MB/s",
                  size_text(original).c_str(), size_text(compressed).c_str(),
                  original != 0 ? static_cast<double>(compressed) / size : 0,
                  seconds > 0 ? size / seconds / 1e6 : 0);
    return text.data();
}

void console::error(const path& name, std::string_view text) const
{
    print_message(with_name(name, text));
}

void console::error(std::string_view text) const
{
    print_message(std::string(text));
}

void console::warn(const path& name, std::string_view text) const
{
    if (verbosity_ >= 0) print_message(with_name(name, text));
}

void console::warn(std::string_view text) const
{
    if (verbosity_ >= 0) print_message(std::string(text));
}

void console::note(const path& name, std::string_view text) const
{
    if (verbosity_ > 0) print_message(with_name(name, text));
}

void print_line(std::string_view line)
{
    const bool written = std::fwrite(line.data(), 1, line.size(), stdout) == line.size() &&
                         std::putc('\n', stdout) != EOF;
    if (!written && output_error == 0) output_error = errno;
}

void flush_output()
{
    if (std::fflush(stdout) != 0 && output_error == 0) output_error = errno;
}

int close_output()
{
    // Some file systems report write errors when a file is closed.
    if (std::fclose(stdout) != 0 && output_error == 0) output_error = errno;
    return output_error;
}

} // namespace tool
