#include "tool/raw_output.h"

#include <algorithm>

namespace tool {
namespace {

/// Finds the first fault that is visible without decoding.
qrx_event find_fault(const open_reader& input)
{
    qrx_event fault{};
    fault.what = input.info.layout;
    fault.block = QRX_NO_BLOCK;
    for (uint64_t block = 0; fault.what == QRX_OK && block < input.info.block_count; ++block) {
        qrx_block_info place{};
        place.struct_size = sizeof place;
        qrx_reader_block_info(input.reader.get(), block, &place);
        if (place.payload_size != 0) continue;
        fault.what = QRX_CORRUPT; // no block has an empty payload
        fault.block = block;
    }
    size_t got = 0;
    if (fault.what == QRX_OK && input.info.block_count == 0) // checks the seal
        fault.what = qrx_reader_read(input.reader.get(), 0, nullptr, 0, &got);
    return fault;
}

} // namespace

int raw_output::fail(const path& name, const std::string& text, int status) const
{
    run_.progress.end();
    run_.messages.error(name, text);
    return status;
}

int raw_output::fail(qrx_status result) const
{
    return fail(target_, failure_text(result, watcher_), exit_status_of(result));
}

int raw_output::write(void* context, uint64_t offset, const void* src, size_t size)
{
    auto& output = *static_cast<raw_output*>(context);
    output.size_ = std::max<uint64_t>(output.size_, offset + size);
    return output.file_.write_at(offset, src, size);
}

int raw_output::create(const path& target)
{
    target_ = target;
    const int error = is_stdio(target) ? file_.open_stdout() : file_.create(target);
    return error == 0 ? exit_good : fail(target, system_error_text(error));
}

int raw_output::start(const qrx_params& params, uint64_t original_size, bool seals)
{
    qrx_sink sink{};
    sink.struct_size = sizeof sink;
    sink.write = write;
    sink.context = this;
    const qrx_options library = library_options(watcher_, 0, seals ? QRX_SEAL : 0);
    qrx_writer* made = nullptr;
    const qrx_status result = qrx_writer_open_sink(&made, &sink, original_size, &params, &library);
    writer_.reset(made);
    return result == QRX_OK ? exit_good : fail(result);
}

int raw_output::copy(const path& name, const open_reader& input, uint64_t block,
                     const uint32_t* crc)
{
    qrx_block_info place{};
    place.struct_size = sizeof place;
    qrx_reader_block_info(input.reader.get(), block, &place);
    payload_.resize(std::max(payload_.size(), static_cast<size_t>(place.payload_size)));
    size_t size = 0;
    const qrx_status read =
        qrx_reader_payload(input.reader.get(), block, payload_.data(), payload_.size(), &size);
    if (read != QRX_OK)
        return fail(name, failure_text(read, input.watcher, input.info), exit_status_of(read));
    const qrx_status written = qrx_writer_raw_block(writer_.get(), payload_.data(), size,
                                                    static_cast<size_t>(place.length), crc);
    return written == QRX_OK ? exit_good : fail(written);
}

int raw_output::end()
{
    const qrx_status result = qrx_writer_finish(writer_.get());
    writer_.reset();
    payload_ = std::vector<char>(); // "= {}" would keep the capacity
    return result == QRX_OK ? exit_good : fail(result);
}

int raw_output::finish(const file_traits& traits, bool replaces)
{
    file_.take_traits(traits);
    const int error = file_.finish(replaces, run_.settings.syncs);
    return error == 0 ? exit_good : fail(target_, system_error_text(error));
}

int open_for_copy(const session& run, const path& name, open_reader& input)
{
    const int status = input.open(run, name, 0);
    if (status != exit_good) return status;
    const qrx_event fault = find_fault(input);
    if (fault.what != QRX_OK) {
        run.messages.error(name, fault_text(fault, input.info) + " (qrx recover saves the rest)");
        return exit_damaged;
    }
    qrx_params settled = input.params;
    const bool is_known = qrx_params_settle(&settled) == QRX_OK &&
                          settled.method == input.params.method &&
                          settled.block_mib == input.params.block_mib;
    if (is_known) return exit_good;
    run.messages.error(name, "has parameters that no version of qrx writes");
    return exit_damaged;
}

} // namespace tool
