#include "tool/codecs.h"

#include <algorithm>

namespace tool {
namespace {

/// Largest number of codecs kept: each can hold large tables.
constexpr size_t max_codecs = 2;

bool are_same_blocks(const qrx_params& a, const qrx_params& b)
{
    return a.method == b.method && a.level == b.level && a.filter == b.filter &&
           (a.context_bits == b.context_bits || a.method != method_with_context_bits);
}

} // namespace

qrx_codec* codec_cache::find(const qrx_params& params)
{
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const entry& known) {
        return are_same_blocks(known.params, params);
    });
    if (found != entries_.end()) {
        std::rotate(entries_.begin(), found, found + 1); // most recently used first
        return entries_[0].codec.get();
    }
    if (entries_.size() == max_codecs) entries_.pop_back();
    qrx_options library{};
    library.struct_size = sizeof library;
    qrx_codec* made = nullptr;
    if (qrx_codec_new(&made, &params, &library) != QRX_OK) return nullptr;
    entries_.insert(entries_.begin(), entry{params, codec_ptr(made)});
    return made;
}

} // namespace tool
