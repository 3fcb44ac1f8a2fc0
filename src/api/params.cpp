// api/params.cpp - parameters, file types and memory bounds
#include "api/handle.h"
#include "format/file_type.h"
#include "format/filters.h"
#include "pipeline/memory_needs.h"
#include "pipeline/parameters.h"

static_assert(QRX_FILTER_X86 == quarnex::filter_x86 && QRX_FILTER_DELTA == quarnex::filter_delta);

namespace quarnex {
namespace {

constexpr u32 default_cell_method = 3;
constexpr u32 default_cell_level = 3;
/// Hash tables of levels 0 and 1 are sized for a second-level cache of this size on every machine,
/// so the same parameters give the same file everywhere.
constexpr u32 assumed_cache_kib = 1024;

bool are_valid(const qrx_params& params)
{
    const bool is_cell = is_method(static_cast<u8>(params.method)) &&
                         params.method <= last_method && params.level <= last_level;
    const bool are_tables = (params.hash_bits == 0 || params.hash_bits >= u32{min_hash_bits}) &&
                            params.hash_bits <= u32{max_hash_bits} &&
                            params.chain_bits <= u32{max_chain_bits};
    return is_cell && are_tables && params.context_bits <= max_lit_ctx_bits &&
           params.filter <= QRX_FILTER_DELTA && params.block_mib <= max_block_mb &&
           params.reserved == 0;
}

void write_parameters(const file_parameters& parameters, qrx_params& params)
{
    params.method = parameters.codec.method;
    params.level = parameters.codec.level;
    params.context_bits = parameters.codec.lit_ctx_bits;
    params.filter = parameters.filter_flags & filter_mask;
    params.hash_bits = static_cast<u32>(parameters.codec.hash_bits);
    params.chain_bits = static_cast<u32>(parameters.codec.chain_bits);
    params.block_mib = parameters.block_mb;
}

/// Bytes for blocks of the full size; 0 if the parameters are invalid.
u64 memory_of(const qrx_params* params, u32 threads,
              u64 (*memory)(const file_parameters&, u64 length, u32 threads))
{
    file_parameters parameters;
    if (!read_parameters(params, parameters) || threads > QRX_MAX_THREADS) return 0;
    return memory(parameters, parameters.block_size(), threads);
}

} // namespace

bool read_parameters(const qrx_params* given, file_parameters& parameters)
{
    qrx_params params{};
    if (given != nullptr && !read_struct(given, params)) return false;
    if (params.method == 0) {
        params.method = default_cell_method;
        params.level = default_cell_level;
    }
    if (!are_valid(params)) return false;
    parameters.codec.method = static_cast<u8>(params.method);
    parameters.codec.level = static_cast<u8>(params.level);
    parameters.codec.lit_ctx_bits = static_cast<u8>(params.context_bits);
    parameters.codec.hash_bits = static_cast<i32>(params.hash_bits);
    parameters.codec.chain_bits = static_cast<i32>(params.chain_bits);
    parameters.filter_flags = static_cast<u8>(params.filter);
    if (params.block_mib != 0) parameters.block_mb = static_cast<u16>(params.block_mib);
    settle_parameters(parameters, fit_to_cache(assumed_cache_kib));
    return true;
}

bool give_parameters(const file_parameters& parameters, qrx_params* given)
{
    qrx_params params{};
    write_parameters(parameters, params);
    return write_struct(params, given);
}

} // namespace quarnex

using namespace quarnex;

qrx_status qrx_params_settle(qrx_params* params)
{
    file_parameters parameters;
    if (params == nullptr || !read_parameters(params, parameters)) return QRX_BAD_ARGUMENT;
    return give_parameters(parameters, params) ? QRX_OK : QRX_BAD_ARGUMENT;
}

qrx_status qrx_params_for_type(qrx_params* params, const void* sample, size_t size,
                               const char* name)
{
    qrx_params known;
    if (!read_struct(params, known) || (sample == nullptr && size != 0)) return QRX_BAD_ARGUMENT;
    if (known.context_bits > max_lit_ctx_bits) return QRX_BAD_ARGUMENT;
    file_parameters parameters;
    parameters.codec.lit_ctx_bits = static_cast<u8>(known.context_bits);
    classify_file({static_cast<const u8*>(sample), size}, name != nullptr ? name : "", parameters);
    known.context_bits = parameters.codec.lit_ctx_bits;
    known.filter = parameters.filter_flags & filter_mask;
    return write_struct(known, params) ? QRX_OK : QRX_BAD_ARGUMENT;
}

uint64_t qrx_compress_memory(const qrx_params* params, uint32_t threads)
{
    return memory_of(params, threads, writer_memory);
}

uint64_t qrx_decompress_memory(const qrx_params* params, uint32_t threads)
{
    return memory_of(params, threads, reader_memory);
}
