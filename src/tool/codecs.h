// tool/codecs.h - codecs that are kept from file to file
#pragma once

#include "tool/library.h"

#include <vector>

namespace tool {

/// A codec per set of parameters.  The tables of a match finder take tens of MiB, and a new table
/// costs more than compressing a small file; a codec clears only what the last block has touched.
class codec_cache {
  public:
    explicit codec_cache(uint64_t memory_limit) : memory_limit_(memory_limit) {}

    /// Returns a codec for blocks of `params`, which qrx_params_settle() has completed; null if
    /// there is no memory for it.
    qrx_codec* find(const qrx_params& params);

  private:
    struct entry {
        qrx_params params;
        codec_ptr codec;
    };

    uint64_t memory_limit_;
    std::vector<entry> entries_;
};

} // namespace tool
