// support/handles.h - owning pointers to the handles of qrx.h, and initialized structures
#pragma once

#include "qrx.h"

#include <memory>

namespace quarnex::test {

/// Deleter for all kinds of handles.
struct close_handle {
    void operator()(qrx_reader* reader) const { qrx_reader_close(reader); }
    void operator()(qrx_writer* writer) const { qrx_writer_close(writer); }
    void operator()(qrx_codec* codec) const { qrx_codec_free(codec); }
};
using reader_ptr = std::unique_ptr<qrx_reader, close_handle>;
using writer_ptr = std::unique_ptr<qrx_writer, close_handle>;
using codec_ptr = std::unique_ptr<qrx_codec, close_handle>;

/// Returns a structure with its size set and all other members zero.
template <class Struct>
Struct sized()
{
    Struct made{};
    made.struct_size = sizeof made;
    return made;
}

} // namespace quarnex::test
