// api/reader.cpp - qrx_reader: a .qrx file open for reading
#include "api/handle.h"
#include "api/memory_streams.h"
#include "common/platform/file.h"
#include "pipeline/file_reader.h"

#include <optional>

using namespace quarnex;

struct qrx_reader {
    explicit qrx_reader(const qrx_options& options) : services(options) {}

    /// Opens `input`, which must outlive the reader.
    qrx_status open(const byte_source& input)
    {
        reader.emplace(services.memory(), input, services.watcher(), services.options().threads,
                       services.rules());
        file_size = input.size;
        return to_qrx(reader->open(services.memory_limit()));
    }

    handle_services services;
    system_file file;
    qrx_source callbacks{};
    std::optional<file_reader> reader;
    u64 file_size = 0;
};

namespace {

int read_file(void* context, u64 offset, u8* dest, usize size, usize& got)
{
    const read_result result = static_cast<system_file*>(context)->read_at(offset, dest, size);
    got = result.count;
    return result.error;
}

int read_callbacks(void* context, u64 offset, u8* dest, usize size, usize& got)
{
    const auto& source = *static_cast<const qrx_source*>(context);
    size_t count = 0;
    const int error = source.read(source.context, offset, dest, size, &count);
    got = std::min(count, size);
    return error;
}

/// Makes a handle, `*made`.  Sets `*reader` to null.
qrx_status make_reader(qrx_reader** reader, const qrx_options* options, qrx_reader** made)
{
    if (reader == nullptr) return QRX_BAD_ARGUMENT;
    *reader = nullptr;
    qrx_options known;
    if (!read_options(options, known)) return QRX_BAD_ARGUMENT;
    *made = make_handle<qrx_reader>(known);
    return *made != nullptr ? QRX_OK : QRX_NO_MEMORY;
}

} // namespace

qrx_status qrx_reader_open(qrx_reader** reader, const char* name, const qrx_options* options)
{
    qrx_reader* made = nullptr;
    qrx_status result = make_reader(reader, options, &made);
    if (result != QRX_OK) return result;
    if (name == nullptr) return hand_out(made, reader, QRX_BAD_ARGUMENT);
    const int error = made->file.open(name);
    if (error != 0)
        result = made->services.report({.what = status::source_unopened, .cause = error});
    else
        result = made->open({read_file, &made->file, made->file.size()});
    return hand_out(made, reader, result);
}

qrx_status qrx_reader_open_source(qrx_reader** reader, const qrx_source* source,
                                  const qrx_options* options)
{
    qrx_reader* made = nullptr;
    const qrx_status result = make_reader(reader, options, &made);
    if (result != QRX_OK) return result;
    if (!read_struct(source, made->callbacks) || made->callbacks.read == nullptr)
        return hand_out(made, reader, QRX_BAD_ARGUMENT);
    return hand_out(made, reader,
                    made->open({read_callbacks, &made->callbacks, made->callbacks.size}));
}

qrx_status qrx_reader_open_memory(qrx_reader** reader, const void* image, size_t size,
                                  const qrx_options* options)
{
    qrx_reader* made = nullptr;
    const qrx_status result = make_reader(reader, options, &made);
    if (result != QRX_OK) return result;
    if (image == nullptr && size != 0) return hand_out(made, reader, QRX_BAD_ARGUMENT);
    return hand_out(made, reader, made->open(source_of(static_cast<const u8*>(image), size)));
}

qrx_status qrx_reader_info(const qrx_reader* reader, qrx_info* info)
{
    if (reader == nullptr) return QRX_BAD_ARGUMENT;
    const record_index& index = reader->reader->index();
    const file_layout& layout = index.layout();
    qrx_info known{};
    known.original_size = layout.original_size;
    known.file_size = reader->file_size;
    known.block_size = layout.parameters.block_size();
    known.block_count = layout.block_count;
    known.blocks_found = layout.block_count != 0 ? index.found() : 0;
    known.stored_blocks = layout.block_count != 0 ? index.stored() : 0;
    known.is_sealed = index.seal() ? 1 : 0;
    known.seal = index.seal().value_or(0);
    known.layout = to_qrx(index.layout_fault());
    return write_struct(known, info) ? QRX_OK : QRX_BAD_ARGUMENT;
}

qrx_status qrx_reader_params(const qrx_reader* reader, qrx_params* params)
{
    if (reader == nullptr) return QRX_BAD_ARGUMENT;
    return give_parameters(reader->reader->index().layout().parameters, params) ? QRX_OK
                                                                                : QRX_BAD_ARGUMENT;
}

qrx_status qrx_reader_block_info(const qrx_reader* reader, uint64_t block, qrx_block_info* info)
{
    if (reader == nullptr) return QRX_BAD_ARGUMENT;
    const record_index& index = reader->reader->index();
    if (block >= index.layout().block_count) return QRX_BAD_ARGUMENT;
    const u32 number = static_cast<u32>(block);
    qrx_block_info known{};
    known.original_offset = index.offset_of(number);
    known.length = index.length_of(number);
    if (const block_place* const place = index.find(number)) {
        known.is_found = 1;
        known.offset = place->offset;
        known.payload_size = place->size;
        known.is_stored = place->size == known.length ? 1 : 0;
    }
    return write_struct(known, info) ? QRX_OK : QRX_BAD_ARGUMENT;
}

qrx_status qrx_reader_read(qrx_reader* reader, uint64_t offset, void* dest, size_t size,
                           size_t* got)
{
    if (reader == nullptr || got == nullptr || (dest == nullptr && size != 0))
        return QRX_BAD_ARGUMENT;
    return to_qrx(reader->reader->read(offset, static_cast<u8*>(dest), size, *got));
}

qrx_status qrx_reader_block(qrx_reader* reader, uint64_t block, void* dest, size_t capacity,
                            size_t* size)
{
    if (reader == nullptr || size == nullptr) return QRX_BAD_ARGUMENT;
    const record_index& index = reader->reader->index();
    if (block >= index.layout().block_count || dest == nullptr) return QRX_BAD_ARGUMENT;
    const u32 number = static_cast<u32>(block);
    const u64 length = index.length_of(number);
    if (length > capacity) return QRX_BUFFER_TOO_SMALL;
    usize got = 0;
    const status read = reader->reader->read(index.offset_of(number), static_cast<u8*>(dest),
                                             static_cast<usize>(length), got);
    *size = got;
    return to_qrx(read);
}

qrx_status qrx_reader_payload(qrx_reader* reader, uint64_t block, void* dest, size_t capacity,
                              size_t* size)
{
    if (reader == nullptr || size == nullptr) return QRX_BAD_ARGUMENT;
    const record_index& index = reader->reader->index();
    if (block >= index.layout().block_count || dest == nullptr) return QRX_BAD_ARGUMENT;
    const u32 number = static_cast<u32>(block);
    const block_place* const place = index.find(number);
    if (place != nullptr && place->size > capacity) return QRX_BUFFER_TOO_SMALL;
    const status read = reader->reader->read_payload(number, static_cast<u8*>(dest));
    if (read == status::done) *size = place->size;
    return to_qrx(read);
}

qrx_status qrx_reader_test(qrx_reader* reader)
{
    return reader != nullptr ? to_qrx(reader->reader->test()) : QRX_BAD_ARGUMENT;
}

void qrx_reader_close(qrx_reader* reader)
{
    free_handle(reader);
}
