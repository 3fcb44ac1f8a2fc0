// api/general.cpp - version, status texts and checksums
#include "format/checksum.h"
#include "qrx.h"

#include <array>

#define QRX_STRING(x) QRX_STRING_OF(x)
#define QRX_STRING_OF(x) #x

const char* qrx_version(void)
{
    return QRX_STRING(QRX_VERSION_MAJOR) "." QRX_STRING(QRX_VERSION_MINOR) "." QRX_STRING(
        QRX_VERSION_PATCH);
}

const char* qrx_status_text(qrx_status status)
{
    static constexpr std::array texts{
        "success",
        "an argument is invalid, or a call comes at the wrong time",
        "out of memory",
        "a thread can't be started",
        "a file can't be opened or created",
        "read error",
        "write error",
        "not a .qrx file",
        "the file ends too early",
        "the header or a record head is invalid",
        "the content doesn't match the seal",
        "the memory limit is too low",
        "cancelled",
        "the destination is too small",
        "a block decodes to too few bytes",
        "a payload doesn't end exactly where its block ends",
        "a block has no record",
        "a block has more than one record",
        "bytes other than a seal follow the last record",
    };
    static_assert(texts.size() == QRX_TRAILING_BYTES + 1);
    const auto index = static_cast<unsigned>(status);
    return index < texts.size() ? texts[index] : "unknown status";
}

uint32_t qrx_crc32(uint32_t crc, const void* data, size_t size)
{
    return quarnex::crc32(crc, static_cast<const quarnex::u8*>(data), size);
}

uint32_t qrx_crc32_combine(uint32_t first, uint32_t second, uint64_t second_size)
{
    return quarnex::combine_crc32(first, second, second_size);
}
