#include "pipeline/progress.h"

#include "common/platform.h"

#include <atomic>
#include <cstdio>

namespace quarnex {
namespace {

constexpr std::chrono::milliseconds interval{200};
constexpr usize longest_name = 60; // a longer line would wrap and could not be rewritten

std::atomic<bool> line_stands{false}; // written by all threads that have something to say

std::string tail_of(const std::string& name)
{
    return name.size() <= longest_name ? name : "..." + name.substr(name.size() - longest_name + 3);
}

} // namespace

progress_line::progress_line(const std::string& name, u64 total)
    : visible_(error_stream_is_terminal()), name_(tail_of(name)), total_(total),
      next_(clock::now() + interval)
{
}

progress_line::~progress_line()
{
    hide_progress();
}

void progress_line::advance(u64 bytes)
{
    done_ += bytes;
    if (!visible_ || total_ == 0 || clock::now() < next_) return;
    next_ = clock::now() + interval;
    line_stands = true;
    const auto percent =
        static_cast<int>(static_cast<double>(done_) / static_cast<double>(total_) * 100);
    std::fprintf(stderr, "\r%s %3d %%", name_.c_str(), percent);
}

void hide_progress()
{
    if (line_stands.exchange(false)) std::fputs("\r\033[K", stderr);
}

} // namespace quarnex
