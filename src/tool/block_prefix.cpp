#include "tool/block_prefix.h"

#include "tool/library.h"

#include <algorithm>
#include <random>

namespace tool {
namespace {

/// Bytes whose x86 filter may look at what follows.
constexpr size_t filter_reach = 8;

enum class filling { zeros, ones, random };

void fill(partial_payload& payload, filling kind)
{
    const auto rest = payload.bytes.begin() + static_cast<ptrdiff_t>(payload.known);
    std::minstd_rand source;
    std::generate(rest, payload.bytes.end(), [&] {
        if (kind == filling::random) return static_cast<char>(source() >> 8U);
        return kind == filling::ones ? '\xFF' : '\0';
    });
}

bool is_damage(qrx_status result)
{
    return result == QRX_BLOCK_SHORT || result == QRX_INEXACT_END;
}

qrx_status decode(qrx_codec* codec, const partial_payload& payload, std::vector<char>& block)
{
    const qrx_status result = qrx_codec_decompress(
        codec, payload.bytes.data(), payload.bytes.size(), block.data(), block.size());
    return is_damage(result) ? QRX_OK : result;
}

} // namespace

qrx_status decode_prefix(const qrx_params& params, uint64_t memory_limit, partial_payload& payload,
                         std::vector<char>& block, size_t& certain)
{
    certain = 0;
    observer watcher;
    qrx_options library = library_options(watcher, 0, 0);
    library.memory_limit = memory_limit;
    qrx_codec* made = nullptr;
    qrx_status result = qrx_codec_new(&made, &params, &library);
    const codec_ptr codec(made);
    fill(payload, filling::zeros);
    if (result == QRX_OK) result = decode(made, payload, block);
    size_t same = block.size();
    std::vector<char> other(block.size());
    for (const filling kind : {filling::ones, filling::random}) {
        fill(payload, kind);
        if (result == QRX_OK) result = decode(made, payload, other);
        if (result != QRX_OK) return result;
        const auto end = block.begin() + static_cast<ptrdiff_t>(same);
        same = static_cast<size_t>(std::mismatch(block.begin(), end, other.begin()).first -
                                   block.begin());
    }
    if (params.filter != QRX_FILTER_NONE) same -= std::min(same, filter_reach);
    // A decoder that stops leaves zeros, which the delta filter turns into repeated bytes.
    const bool is_stored = payload.bytes.size() == block.size();
    if (params.filter == QRX_FILTER_DELTA && !is_stored) same = 0;
    while (same != 0 && block[same - 1] == 0) --same;
    std::fill(block.begin() + static_cast<ptrdiff_t>(same), block.end(), '\0');
    certain = same;
    return QRX_OK;
}

} // namespace tool
