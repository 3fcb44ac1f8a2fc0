// api/codec.cpp - qrx_codec: single blocks
#include "api/handle.h"
#include "common/owned_array.h"
#include "common/scratch.h"
#include "format/filters.h"
#include "pipeline/block_coder.h"
#include "pipeline/memory_needs.h"

#include <algorithm>

using namespace quarnex;

static_assert(QRX_CODEC_SLACK >= out_slack);

struct qrx_codec {
    qrx_codec(const qrx_options& options, const file_parameters& settled)
        : services(options), parameters(settled), memory(services.memory())
    {
    }

    /// Grows `buffer` to at least `size` bytes, which discards its content.  Returns false without
    /// memory.
    bool grow_buffer(usize size)
    {
        if (buffer && buffer.get_deleter().size >= size) return true;
        buffer.reset();
        const memory_kind kind =
            size < large_page_size ? memory_kind::plain : memory_kind::large_pages;
        buffer = make_array<u8>(services.memory(), size, kind);
        return buffer != nullptr;
    }

    codec_job job_of(const u8* in, usize in_len, u8* out, usize out_len)
    {
        return {parameters.codec,          in,     static_cast<u32>(in_len), out,
                static_cast<u32>(out_len), &memory};
    }

    handle_services services;
    const file_parameters parameters;
    scratch memory;
    owned_array<u8> buffer; // the block to compress, with its slack
};

qrx_status qrx_codec_new(qrx_codec** codec, const qrx_params* params, const qrx_options* options)
{
    if (codec == nullptr) return QRX_BAD_ARGUMENT;
    *codec = nullptr;
    qrx_options known;
    file_parameters parameters;
    if (!read_options(options, known) || !read_parameters(params, parameters))
        return QRX_BAD_ARGUMENT;
    qrx_codec* const made = make_handle<qrx_codec>(known, parameters);
    if (made == nullptr) return QRX_NO_MEMORY;
    const u64 needed = writer_memory(parameters, parameters.block_size(), 0);
    return hand_out(made, codec, needed > made->services.memory_limit() ? QRX_OVER_LIMIT : QRX_OK);
}

qrx_status qrx_codec_buffer(qrx_codec* codec, size_t length, void** block)
{
    if (codec == nullptr || block == nullptr || length > codec->parameters.block_size())
        return QRX_BAD_ARGUMENT;
    if (!codec->grow_buffer(length + in_slack)) return QRX_NO_MEMORY;
    *block = codec->buffer.get();
    return QRX_OK;
}

qrx_status qrx_codec_compress(qrx_codec* codec, const void* block, size_t length, void* payload,
                              size_t capacity, size_t* size)
{
    const bool is_bad = codec == nullptr || block == nullptr || length == 0 ||
                        length > codec->parameters.block_size() || payload == nullptr ||
                        size == nullptr;
    if (is_bad) return QRX_BAD_ARGUMENT;
    if (capacity < length + QRX_CODEC_SLACK) return QRX_BUFFER_TOO_SMALL;
    if (block != codec->buffer.get()) {
        if (!codec->grow_buffer(length + in_slack)) return QRX_NO_MEMORY;
        std::memcpy(codec->buffer.get(), block, length);
    } else if (length + in_slack > codec->buffer.get_deleter().size) {
        return QRX_BAD_ARGUMENT;
    }
    u8* const input = codec->buffer.get();
    std::memset(input + length, 0, in_slack);
    run_filter(codec->parameters.filter_flags, {input, length}, filter_use::apply);
    const codec_result coded = encode(codec->job_of(input, length, static_cast<u8*>(payload), 0));
    if (coded.status != codec_status::done) return QRX_NO_MEMORY;
    *size = coded.length;
    return QRX_OK;
}

qrx_status qrx_codec_decompress(qrx_codec* codec, const void* payload, size_t size, void* block,
                                size_t length)
{
    const bool is_bad = codec == nullptr || payload == nullptr || block == nullptr || length == 0 ||
                        length > codec->parameters.block_size() || size > length;
    if (is_bad) return QRX_BAD_ARGUMENT;
    u8* const output = static_cast<u8*>(block);
    codec_result decoded{codec_status::done, static_cast<u32>(length), true};
    if (size == length)
        std::memcpy(output, payload, length);
    else
        decoded = decode(codec->job_of(static_cast<const u8*>(payload), size, output, length));
    if (decoded.status != codec_status::done) return QRX_NO_MEMORY;
    std::memset(output + decoded.length, 0, length - decoded.length);
    run_filter(codec->parameters.filter_flags, {output, length}, filter_use::undo);
    if (decoded.length != length) return QRX_BLOCK_SHORT;
    return decoded.exact_end ? QRX_OK : QRX_INEXACT_END;
}

void qrx_codec_free(qrx_codec* codec)
{
    free_handle(codec);
}
