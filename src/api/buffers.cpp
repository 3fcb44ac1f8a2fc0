// api/buffers.cpp - whole buffers
#include "api/handle.h"
#include "api/memory_streams.h"
#include "format/checksum.h"
#include "format/container.h"
#include "format/records.h"
#include "pipeline/file_reader.h"
#include "pipeline/file_writer.h"

using namespace quarnex;

namespace {

qrx_status compress(const file_parameters& parameters, const qrx_options& options, const u8* src,
                    usize size, memory_sink& dest)
{
    handle_services services(options);
    file_writer writer(services.memory(), dest.sink(), services.watcher(), parameters,
                       options.threads, services.has_flag(QRX_SEAL), size);
    status result = writer.open(services.memory_limit());
    if (result == status::done) result = writer.begin();
    if (result == status::done) result = writer.write(src, size);
    if (result == status::done) result = writer.finish();
    return to_qrx(result);
}

} // namespace

size_t qrx_compress_bound(const qrx_params* params, size_t size)
{
    file_parameters parameters;
    if (!read_parameters(params, parameters)) return 0;
    const u64 blocks = std::max<u64>(count_blocks(size, parameters.block_size()), 1);
    // Room for the slack of the last block lets every block be encoded straight into the image.
    const u64 overhead = file_header_bytes + blocks * record_head_bytes + out_slack + seal_bytes;
    return overhead > SIZE_MAX - size ? 0 : static_cast<size_t>(size + overhead);
}

qrx_status qrx_compress(const qrx_params* params, const qrx_options* options, const void* src,
                        size_t size, void* dest, size_t capacity, size_t* dest_size)
{
    qrx_options known;
    file_parameters parameters;
    const bool is_bad = !read_options(options, known) || !read_parameters(params, parameters) ||
                        (src == nullptr && size != 0) || dest == nullptr || dest_size == nullptr;
    if (is_bad) return QRX_BAD_ARGUMENT;
    memory_sink image{static_cast<u8*>(dest), capacity};
    const qrx_status result = compress(parameters, known, static_cast<const u8*>(src), size, image);
    if (result == QRX_OK) *dest_size = image.size;
    return result;
}

qrx_status qrx_decompressed_size(const void* src, size_t size, uint64_t* original_size)
{
    if (src == nullptr || original_size == nullptr) return QRX_BAD_ARGUMENT;
    record_index index(false);
    const status read = index.read_header(source_of(static_cast<const u8*>(src), size), {});
    if (read == status::done) *original_size = index.layout().original_size;
    return to_qrx(read);
}

qrx_status qrx_decompress(const qrx_options* options, const void* src, size_t size, void* dest,
                          size_t capacity, size_t* dest_size)
{
    qrx_options known;
    if (!read_options(options, known) || (src == nullptr && size != 0) || dest_size == nullptr ||
        (dest == nullptr && capacity != 0))
        return QRX_BAD_ARGUMENT;
    *dest_size = 0;
    handle_services services(known);
    file_reader reader(services.memory(), source_of(static_cast<const u8*>(src), size),
                       services.watcher(), known.threads, services.rules());
    const status opened = reader.open(services.memory_limit());
    if (opened != status::done) return to_qrx(opened);
    if (reader.original_size() > capacity) return services.report({.what = status::too_small});
    return to_qrx(reader.read_all(static_cast<u8*>(dest), *dest_size));
}
