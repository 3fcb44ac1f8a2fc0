// api/general.cpp - version, status texts and checksums
#include "format/checksum.h"
#include "qrx.h"

#define QRX_STRING(x) QRX_STRING_OF(x)
#define QRX_STRING_OF(x) #x

const char* qrx_version(void)
{
    return QRX_STRING(QRX_VERSION_MAJOR) "." QRX_STRING(QRX_VERSION_MINOR) "." QRX_STRING(
        QRX_VERSION_PATCH);
}

const char* qrx_status_text(qrx_status status)
{
    switch (status) {
    case QRX_OK:
        return "success";
    case QRX_BAD_ARGUMENT:
        return "an argument is invalid, or a call comes at the wrong time";
    case QRX_NO_MEMORY:
        return "out of memory";
    case QRX_NO_THREAD:
        return "a thread can't be started";
    case QRX_OPEN_FAILED:
        return "a file can't be opened or created";
    case QRX_READ_FAILED:
        return "read error";
    case QRX_WRITE_FAILED:
        return "write error";
    case QRX_NOT_QRX:
        return "not a .qrx file";
    case QRX_TRUNCATED:
        return "the file ends too early";
    case QRX_CORRUPT:
        return "the header or a record head is invalid";
    case QRX_CHECKSUM_MISMATCH:
        return "the content doesn't match the seal";
    case QRX_OVER_LIMIT:
        return "the memory limit is too low";
    case QRX_CANCELLED:
        return "cancelled";
    case QRX_BUFFER_TOO_SMALL:
        return "the destination is too small";
    case QRX_BLOCK_SHORT:
        return "a block decodes to too few bytes";
    case QRX_INEXACT_END:
        return "a payload doesn't end exactly where its block ends";
    case QRX_BLOCK_MISSING:
        return "a block has no record";
    case QRX_BLOCK_REPEATED:
        return "a block has more than one record";
    case QRX_TRAILING_BYTES:
        return "bytes other than a seal follow the last record";
    }
    return "unknown status";
}

uint32_t qrx_crc32(uint32_t crc, const void* data, size_t size)
{
    return quarnex::crc32(crc, static_cast<const quarnex::u8*>(data), size);
}

uint32_t qrx_crc32_combine(uint32_t first, uint32_t second, uint64_t second_size)
{
    return quarnex::combine_crc32(first, second, second_size);
}
