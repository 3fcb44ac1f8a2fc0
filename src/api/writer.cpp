// api/writer.cpp - qrx_writer: a .qrx file open for writing
#include "api/handle.h"
#include "common/pending_file.h"
#include "pipeline/file_writer.h"

#include <cerrno>
#include <optional>

using namespace quarnex;

static_assert(QRX_UNKNOWN_SIZE == unknown_size);

struct qrx_writer {
    explicit qrx_writer(const qrx_options& options) : services(options), file(services.memory()) {}

    qrx_status open(const byte_sink& output, const file_parameters& parameters, u64 original_size)
    {
        writer.emplace(services.memory(), output, services.watcher(), parameters,
                       services.options().threads, services.has_flag(QRX_SEAL), original_size);
        return to_qrx(writer->open(services.memory_limit()));
    }

    qrx_status create(const char* name)
    {
        has_name = true;
        const int error = file.create(name);
        const status failure = error == ENOMEM ? status::no_memory : status::destination_uncreated;
        return error == 0 ? QRX_OK : services.report({.what = failure, .cause = error});
    }

    handle_services services;
    pending_file file; // of qrx_writer_open()
    u64 position = 0;  // in `file`
    bool has_name = false;
    bool is_finished = false;
    qrx_status finish_result = QRX_OK;
    qrx_sink callbacks{};
    std::optional<file_writer> writer;
};

namespace {

int write_file(void* context, u64 offset, const u8* src, usize size)
{
    auto& writer = *static_cast<qrx_writer*>(context);
    system_file& file = writer.file.file;
    int error = 0;
    if (offset != writer.position) error = file.seek(offset);
    if (error == 0) error = file.write(src, size);
    writer.position = offset + size;
    return error;
}

int write_callbacks(void* context, u64 offset, const u8* src, usize size)
{
    const auto& sink = *static_cast<const qrx_sink*>(context);
    return sink.write(sink.context, offset, src, size);
}

/// Reads the parameters and makes a handle, `*made`.  Sets `*writer` to null.
qrx_status make_writer(qrx_writer** writer, const qrx_params* params, const qrx_options* options,
                       qrx_writer** made, file_parameters& parameters)
{
    if (writer == nullptr) return QRX_BAD_ARGUMENT;
    *writer = nullptr;
    qrx_options known;
    if (!read_options(options, known) || !read_parameters(params, parameters))
        return QRX_BAD_ARGUMENT;
    *made = make_handle<qrx_writer>(known);
    return *made != nullptr ? QRX_OK : QRX_NO_MEMORY;
}

/// Returns QRX_OK if the writer can take calls; otherwise what they return.
qrx_status refusal(const qrx_writer* writer)
{
    if (writer == nullptr) return QRX_BAD_ARGUMENT;
    if (!writer->is_finished) return QRX_OK;
    return writer->finish_result != QRX_OK ? writer->finish_result : QRX_BAD_ARGUMENT;
}

/// Ends a writer, and gives its file the name.
qrx_status finish(qrx_writer& writer)
{
    const qrx_status result = to_qrx(writer.writer->finish());
    if (result == QRX_BAD_ARGUMENT) return result;
    writer.is_finished = true;
    if (!writer.has_name) return result;
    if (result != QRX_OK) {
        writer.file.discard();
        return result;
    }
    const int error = writer.file.commit();
    if (error == 0) return QRX_OK;
    return writer.services.report({.what = status::write_failed, .cause = error});
}

} // namespace

qrx_status qrx_writer_open(qrx_writer** writer, const char* name, uint64_t original_size,
                           const qrx_params* params, const qrx_options* options)
{
    qrx_writer* made = nullptr;
    file_parameters parameters;
    qrx_status result = make_writer(writer, params, options, &made, parameters);
    if (result != QRX_OK) return result;
    if (name == nullptr) return hand_out(made, writer, QRX_BAD_ARGUMENT);
    result = made->open({write_file, made}, parameters, original_size);
    if (result == QRX_OK) result = made->create(name); // after all that can fail without it
    if (result == QRX_OK) result = to_qrx(made->writer->begin());
    return hand_out(made, writer, result);
}

qrx_status qrx_writer_open_sink(qrx_writer** writer, const qrx_sink* sink, uint64_t original_size,
                                const qrx_params* params, const qrx_options* options)
{
    qrx_writer* made = nullptr;
    file_parameters parameters;
    const qrx_status result = make_writer(writer, params, options, &made, parameters);
    if (result != QRX_OK) return result;
    if (!read_struct(sink, made->callbacks) || made->callbacks.write == nullptr)
        return hand_out(made, writer, QRX_BAD_ARGUMENT);
    qrx_status opened = made->open({write_callbacks, &made->callbacks}, parameters, original_size);
    if (opened == QRX_OK) opened = to_qrx(made->writer->begin());
    return hand_out(made, writer, opened);
}

qrx_status qrx_writer_write(qrx_writer* writer, const void* src, size_t size)
{
    if (const qrx_status refused = refusal(writer); refused != QRX_OK) return refused;
    if (src == nullptr && size != 0) return QRX_BAD_ARGUMENT;
    return to_qrx(writer->writer->write(static_cast<const u8*>(src), size));
}

qrx_status qrx_writer_buffer(qrx_writer* writer, void** dest, size_t* room)
{
    if (const qrx_status refused = refusal(writer); refused != QRX_OK) return refused;
    if (dest == nullptr || room == nullptr) return QRX_BAD_ARGUMENT;
    u8* lent = nullptr;
    const qrx_status result = to_qrx(writer->writer->lend(lent, *room));
    if (result == QRX_OK) *dest = lent;
    return result;
}

qrx_status qrx_writer_advance(qrx_writer* writer, size_t size)
{
    const qrx_status refused = refusal(writer);
    return refused == QRX_OK ? to_qrx(writer->writer->advance(size)) : refused;
}

qrx_status qrx_writer_raw_block(qrx_writer* writer, const void* payload, size_t size, size_t length,
                                const uint32_t* crc)
{
    if (const qrx_status refused = refusal(writer); refused != QRX_OK) return refused;
    if (payload == nullptr) return QRX_BAD_ARGUMENT;
    return to_qrx(writer->writer->write_raw(static_cast<const u8*>(payload), size, length, crc));
}

qrx_status qrx_writer_finish(qrx_writer* writer)
{
    if (const qrx_status refused = refusal(writer); refused != QRX_OK) return refused;
    writer->finish_result = finish(*writer);
    return writer->finish_result;
}

void qrx_writer_close(qrx_writer* writer)
{
    free_handle(writer);
}
