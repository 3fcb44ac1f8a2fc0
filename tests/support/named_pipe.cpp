#include "support/named_pipe.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quarnex::test {
namespace {

int make_pipe(const std::string& name)
{
    if (mkfifo(name.c_str(), 0600) != 0) std::abort();
    // Non-blocking: doesn't wait for the writer, whose open() then finds a reader.
    return open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

} // namespace

named_pipe::named_pipe(const std::string& name, usize pause_after, std::function<void()> at_pause)
    : fd_(make_pipe(name)), reader_([this, pause_after, at_pause = std::move(at_pause)] {
          read_until(pause_after);
          at_pause();
          read_until(SIZE_MAX);
      })
{
}

named_pipe::~named_pipe()
{
    content();
    close(fd_);
}

const bytes& named_pipe::content()
{
    writer_ended_ = true;
    if (reader_.joinable()) reader_.join();
    return content_;
}

/// Waits up to 10 ms and reads at most `max_bytes`.  Returns false at the end of the data.
bool named_pipe::read_some(usize max_bytes)
{
    pollfd ready{fd_, POLLIN, 0};
    const bool ended = writer_ended_; // checked before reading, so that no data is missed
    poll(&ready, 1, 10);
    std::array<u8, 65536> chunk;
    const ssize_t got = read(fd_, chunk.data(), std::min(max_bytes, chunk.size()));
    if (got > 0) content_.insert(content_.end(), chunk.data(), chunk.data() + got);
    return got > 0 || !ended;
}

void named_pipe::read_until(usize size)
{
    while (content_.size() < size && read_some(size - content_.size())) {
    }
}

} // namespace quarnex::test
