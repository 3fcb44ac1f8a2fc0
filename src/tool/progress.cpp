#include "tool/progress.h"

#include "tool/console.h"
#include "tool/process.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <new>
#include <string_view>

namespace tool {
namespace {

constexpr double first_seconds = 0.5;
constexpr double interval_seconds = 0.2;

/// Shortens `name` to at most `room` bytes: "..." and its last characters, or nothing if even that
/// doesn't fit.
std::string shortened(std::string_view name, size_t room)
{
    constexpr std::string_view dots = "...";
    if (name.size() <= room) return std::string(name);
    if (room < 2 * dots.size()) return {};
    name.remove_prefix(name.size() - (room - dots.size()));
    while (!name.empty() && (static_cast<unsigned char>(name[0]) & 0xC0U) == 0x80)
        name.remove_prefix(1);
    return std::string(dots).append(name);
}

/// Returns a duration such as "0:07" or "1:02:03".
std::string duration_text(double seconds)
{
    constexpr double max_seconds = 100 * 3600; // a rate near 0 predicts nothing
    const long whole = std::lround(std::min(seconds, max_seconds));
    std::array<char, 40> text;
    if (whole >= 3600)
        std::snprintf(text.data(), text.size(), "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    else
        std::snprintf(text.data(), text.size(), "%ld:%02ld", whole / 60, whole % 60);
    return text.data();
}

} // namespace

progress_line::progress_line(bool is_wanted) : is_wanted_(is_wanted && stderr_is_terminal()) {}

void progress_line::start(const path& name, uint64_t total, uint64_t compressed)
{
    end();
    name_ = printable(name);
    total_ = total;
    done_ = 0;
    compressed_ = compressed;
    written_ = 0;
    started_ = clock::now();
    shown_ = started_;
}

void progress_line::advance(uint64_t done) noexcept
{
    done_ = done;
    if (!is_wanted_) return;
    const auto now = clock::now();
    const std::chrono::duration<double> all = now - started_;
    const std::chrono::duration<double> since = now - shown_;
    if (all.count() < first_seconds || since.count() < interval_seconds) return;
    shown_ = now;
    try {
        show(all.count());
    } catch (const std::bad_alloc&) { // not shown this time
    }
}

void progress_line::show(double seconds)
{
    std::array<char, 160> numbers;
    const double done = static_cast<double>(done_);
    std::snprintf(numbers.data(), numbers.size(), "  %s  %.0f MB/s  ratio %.3f",
                  size_text(done_).c_str(), done / seconds / 1e6, ratio());
    std::string text = numbers.data();
    if (total_ != 0 && done_ != 0) {
        const double left = seconds * static_cast<double>(total_ - std::min(done_, total_)) / done;
        std::snprintf(numbers.data(), numbers.size(), "  %.0f %%  %s left",
                      100 * done / static_cast<double>(total_), duration_text(left).c_str());
        text = numbers.data() + text;
    }
    const size_t room = terminal_columns() - 1;
    const size_t for_name = text.size() < room ? room - text.size() : 0;
    print(shortened(name_, for_name) + text);
}

/// Returns compressed / original: of the whole file if both sizes are known, otherwise so far.
double progress_line::ratio() const
{
    const bool is_known = compressed_ != 0 && total_ != 0;
    const auto original = static_cast<double>(is_known ? total_ : done_);
    return original > 0 ? static_cast<double>(is_known ? compressed_ : written_) / original : 0;
}

void progress_line::status(const std::string& text)
{
    if (is_wanted_) print(text);
}

void progress_line::print(const std::string& text)
{
    std::fprintf(stderr, "\r\x1b[K%s", text.substr(0, terminal_columns() - 1).c_str());
    std::fflush(stderr);
    is_shown_ = true;
}

void progress_line::end()
{
    if (!is_shown_) return;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
    is_shown_ = false;
}

} // namespace tool
