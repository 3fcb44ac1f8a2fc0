// fuzz/captured_text.h - captures what is printed to a standard stream
#pragma once

#include "fuzz_target.h"

#include <string>

namespace quarnex::fuzz {

/// Replaces `stdout` or `stderr` with a stream in memory.  libFuzzer and the sanitizers don't print
/// through stdio.
class captured_text {
  public:
    explicit captured_text(FILE*& stream) : stream_(stream), before_(stream)
    {
        stream_ = open_memstream(&text_, &size_);
        require(stream_ != nullptr, "open_memstream() succeeds");
    }
    captured_text(const captured_text&) = delete;
    captured_text& operator=(const captured_text&) = delete;
    ~captured_text()
    {
        std::fclose(stream_);
        stream_ = before_;
        std::free(text_);
    }

    std::string text() const
    {
        std::fflush(stream_);
        return {text_, size_};
    }

  private:
    FILE*& stream_;
    FILE* const before_;
    char* text_ = nullptr;
    usize size_ = 0;
};

/// Returns whether each line of `text` is a message of qrx, without control characters.
inline bool are_messages(const std::string& text)
{
    for (usize at = 0; at < text.size();) {
        const usize end = text.find('\n', at);
        if (end == std::string::npos || text.compare(at, 5, "qrx: ") != 0) return false;
        for (; at < end; ++at)
            if (static_cast<u8>(text[at]) < 0x20 || text[at] == 0x7F) return false;
        ++at;
    }
    return true;
}

} // namespace quarnex::fuzz
