#include "tool/block_prefix.h"

#include "tool/library.h"

#include <algorithm>
#include <random>

namespace tool {
namespace {

/// Bytes before the first difference that are not trusted either.  The x86 filter looks up to 8
/// bytes ahead.
constexpr size_t margin_bytes = 16;

constexpr unsigned filling_count = 6;

/// Upper bound on the redundant bytes at the end of a payload.
constexpr size_t redundant_bytes = 16;

/// Fills the unknown rest of a payload with 0x00, 0xFF or random bytes.
void fill(partial_payload& payload, unsigned filling)
{
    std::minstd_rand source(filling);
    std::generate(payload.bytes.begin() + static_cast<ptrdiff_t>(payload.known),
                  payload.bytes.end(), [&] {
                      const auto random = static_cast<char>(source() >> 8U);
                      return filling == 0 ? '\0' : filling == 1 ? '\xFF' : random;
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

qrx_status decode_prefix(const qrx_params& params, partial_payload& payload,
                         std::vector<char>& block, size_t& certain)
{
    certain = 0;
    // Decoders don't use these, so they may be damaged.
    qrx_params needed = params;
    needed.hash_bits = needed.chain_bits = 0;
    if (needed.method != method_with_context_bits) needed.context_bits = 0;
    // Without a memory limit, which would be compared with the needs of an encoder.
    qrx_codec* made = nullptr;
    qrx_status result = qrx_codec_new(&made, &needed, nullptr);
    const codec_ptr codec(made);
    fill(payload, 0);
    if (result == QRX_OK) result = decode(made, payload, block);
    size_t same = block.size();
    std::vector<char> other(block.size());
    for (unsigned filling = 1; result == QRX_OK && filling < filling_count; ++filling) {
        fill(payload, filling);
        result = decode(made, payload, other);
        const auto end = block.begin() + static_cast<ptrdiff_t>(same);
        same = static_cast<size_t>(std::mismatch(block.begin(), end, other.begin()).first -
                                   block.begin());
    }
    if (result != QRX_OK) return result;
    // A decoder that never gets to the unknown rest was misled: the known bytes are damaged.
    const bool is_damaged =
        same == block.size() && payload.bytes.size() - payload.known > redundant_bytes;
    if (is_damaged) same = 0;
    // A decoder that stops early leaves zeros, which the delta filter turns into repeated bytes.
    const bool is_stored = payload.bytes.size() == block.size();
    if (params.filter == QRX_FILTER_DELTA && !is_stored) same = 0;
    while (same != 0 && block[same - 1] == 0) --same;
    if (same != block.size()) same -= std::min(same, margin_bytes);
    std::fill(block.begin() + static_cast<ptrdiff_t>(same), block.end(), '\0');
    certain = same;
    return QRX_OK;
}

} // namespace tool
