#include "frontend/progress.h"

#include "frontend/system.h"

#include <atomic>
#include <cstdio>

namespace quarnex {
namespace {

constexpr std::chrono::milliseconds interval{200};
constexpr usize max_name = 60; // in bytes; a longer line would wrap and could not be rewritten

std::atomic<bool> line_visible{false}; // cleared by any thread that prints

/// Returns the last max_name bytes of `name`, starting with "..." if it is longer.
std::string shorten(const std::string& name)
{
    return name.size() <= max_name ? name : "..." + name.substr(name.size() - max_name + 3);
}

/// Returns whether standard error is a terminal; checked once.
bool is_visible()
{
    static const bool visible = error_stream_is_terminal();
    return visible;
}

} // namespace

progress_line::progress_line(const std::string& name)
    : name_(is_visible() ? shorten(name) : ""), next_(clock::now() + interval)
{
}

progress_line::~progress_line()
{
    hide_progress();
}

void progress_line::advance(u64 done, u64 total)
{
    if (!is_visible() || total == 0 || clock::now() < next_) return;
    next_ = clock::now() + interval;
    line_visible = true;
    const auto percent =
        static_cast<int>(static_cast<double>(done) / static_cast<double>(total) * 100);
    std::fprintf(stderr, "\r%s %3d %%", name_.c_str(), percent);
}

void hide_progress()
{
    if (line_visible.exchange(false)) std::fputs("\r\033[K", stderr);
}

} // namespace quarnex
