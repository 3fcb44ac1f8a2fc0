// tool/codecs.h - a cache of codecs, which are reused from file to file
#pragma once

#include "tool/library.h"

#include <vector>

namespace tool {

/// A codec per set of parameters.  The tables of a match finder take tens of MiB, and clearing new
/// ones takes longer than compressing a small file; a codec clears only what its last block
/// touched.
class codec_cache {
  public:
    /// Returns a codec for `params`, completed by qrx_params_settle(); null without memory.
    qrx_codec* find(const qrx_params& params);

  private:
    struct entry {
        qrx_params params;
        codec_ptr codec;
    };

    std::vector<entry> entries_;
};

} // namespace tool
