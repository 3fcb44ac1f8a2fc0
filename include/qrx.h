/* qrx.h - compress and decompress .qrx files, buffers and single blocks
 *
 * A .qrx file consists of a header, one record for each block of the original, and an optional
 * seal: the CRC-32 of the original.  Blocks are coded independently, so threads can share a file,
 * and any range of the original can be read without decoding the rest.
 *
 *     qrx_compress(), qrx_decompress()    whole buffers
 *     qrx_reader                          read a file: information, any range, test
 *     qrx_writer                          write a file piece by piece
 *     qrx_codec                           single blocks, for other container formats
 *
 * The library never prints, never ends the process and keeps no state outside its handles.
 * Different handles are independent; one handle must not be used by two threads at a time.
 * Callbacks run on the thread that called the library, except those of the allocator, which run on
 * any thread.  A callback must return (no exception, no longjmp) and must not use the handle that
 * called it.  File names are passed to the system unchanged: on Windows they are in its ANSI code
 * page.
 *
 * Functions that can fail return a qrx_status.  Output arguments are unchanged on failure unless
 * the function's comment says otherwise.  Structures that may grow start with `struct_size`, which
 * the caller sets to sizeof, for output too.  In input, every other field that is zero means its
 * default (`level` only if `method` is 0 as well):
 *
 *     qrx_params params = {.struct_size = sizeof params};         C99, C++20
 *     qrx_params params{}; params.struct_size = sizeof params;    earlier C++
 */
#ifndef QRX_H
#define QRX_H

#include <stddef.h>
#include <stdint.h>

#ifndef QRX_API
#if defined(__GNUC__) && !defined(_WIN32)
#define QRX_API __attribute__((visibility("default")))
#else
#define QRX_API
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------- version and status */

#define QRX_VERSION_MAJOR 0
#define QRX_VERSION_MINOR 94
#define QRX_VERSION_PATCH 0

/* Returns the version of the library at run time, such as "0.94.0". */
QRX_API const char* qrx_version(void);

typedef enum qrx_status {
    QRX_OK = 0,
    QRX_BAD_ARGUMENT = 1,          /* an argument is invalid, or a call comes at the wrong time */
    QRX_NO_MEMORY = 2,             /* out of memory */
    QRX_NO_THREAD = 3,             /* a thread can't be started */
    QRX_OPEN_FAILED = 4,           /* a file can't be opened or created */
    QRX_READ_FAILED = 5,           /* the system or the source reports a read error */
    QRX_WRITE_FAILED = 6,          /* the system or the sink reports a write error */
    QRX_NOT_QRX = 7,               /* not a .qrx file */
    QRX_TRUNCATED = 8,             /* the file ends too early */
    QRX_CORRUPT = 9,               /* the header or a record head is invalid */
    QRX_CHECKSUM_MISMATCH = 10,    /* the content doesn't match the seal */
    QRX_OVER_LIMIT = 11,           /* the memory limit is too low */
    QRX_CANCELLED = 12,            /* cancelled by the progress callback */
    QRX_BUFFER_TOO_SMALL = 13,     /* the destination is too small */
    QRX_BLOCK_SHORT = 14,          /* a block decodes to fewer bytes than its length */
    QRX_INEXACT_END = 15,          /* a payload doesn't end exactly where its block ends */
    QRX_BLOCK_MISSING = 16,        /* a block has no record */
    QRX_BLOCK_REPEATED = 17,       /* a block has more than one record */
    QRX_TRAILING_BYTES = 18,       /* bytes other than a seal follow the last record */
    QRX_STATUS_IS_INT = 0x7FFFFFFF /* no status: gives the type the size of int */
} qrx_status;

/* Returns a description of a status in English, without a full stop.  Never null, whatever the
 * value. */
QRX_API const char* qrx_status_text(qrx_status status);

/* ---------------------------------------------------------------------------------- parameters */

#define QRX_FILTER_NONE 0u
#define QRX_FILTER_X86 1u   /* for x86 machine code */
#define QRX_FILTER_DELTA 2u /* for three-byte records, such as pixels */

/* How a file is compressed.  The same parameters and original give the same file on every machine
 * and with any number of threads. */
typedef struct qrx_params {
    size_t struct_size;
    uint32_t method;       /* 1 to 5; 0: method 3 at level 3, whatever `level` is */
    uint32_t level;        /* 0 to 9 */
    uint32_t context_bits; /* literal context bits, used by method 4: 0 to 8 */
    uint32_t filter;       /* QRX_FILTER_... */
    uint32_t hash_bits;    /* log2 of the hash table's entries, 10 to 30; 0: by level */
    uint32_t chain_bits;   /* log2 of the candidates per hash value, 1 to 8; 0: by level */
    uint32_t block_mib;    /* block size in MiB, 1 to 2047; 0: 32.  Capped at 16
                              at levels 4 to 7 */
    uint32_t reserved;     /* 0 */
} qrx_params;

/* Replaces defaults and capped values with the values in effect, which a file's header stores.
 * Fails with QRX_BAD_ARGUMENT if a field is out of range. */
QRX_API qrx_status qrx_params_settle(qrx_params* params);

/* Detects the type of a file from the first bytes of its content (1 MiB is enough) and from its
 * name, which may be null.  Sets `filter` accordingly, and `context_bits` if it is 0.  `sample` may
 * be null if `size` is 0. */
QRX_API qrx_status qrx_params_for_type(qrx_params* params, const void* sample, size_t size,
                                       const char* name);

/* Return an upper bound, in bytes, on what one handle or whole-buffer call allocates with
 * `threads` threads and blocks of full size.  A reader allocates up to 16 bytes more for each block
 * of the file.  At level 9, each compressing thread reserves an address range of 128 times the
 * block size, 36 times on 32-bit systems.  The bound includes all of it (4 GiB for blocks of
 * 32 MiB), but most blocks use little or none of it.  A null `params` means the defaults.  The
 * result is 0 if an argument is out of range. */
QRX_API uint64_t qrx_compress_memory(const qrx_params* params, uint32_t threads);
QRX_API uint64_t qrx_decompress_memory(const qrx_params* params, uint32_t threads);

/* ------------------------------------------------------------------------------------- options */

#define QRX_MAX_THREADS 256u

/* Flags of qrx_options.
 *
 * QRX_SEAL, when compressing: ends the file with a seal.
 *
 * QRX_KEEP_DAMAGED, when decompressing: reports damage by event() instead of by status, and puts
 * zeros in place of what can't be decoded.  Has no effect on qrx_reader_payload() and
 * qrx_reader_test().
 *
 * QRX_SEARCH, for opening damaged files: records after damage are searched for.  Without it, all
 * blocks after an invalid record head count as missing.  A record with a damaged head is used if
 * its extent is known; qrx_reader_test() and qrx_decompress() then report QRX_CORRUPT with the
 * number of its block to event().  A damaged header is reconstructed from the records; then
 * qrx_info.layout has QRX_NOT_QRX or QRX_CORRUPT, which opening reports to event(), and the filter
 * and the last bytes of the original may be wrong.  Opening reads the file from its end back to the
 * damage and decodes a few blocks.  Memory for the search: up to 2 MiB and 64 bytes per block, or
 * 64 MiB if the header is damaged; then, to check or reconstruct the header, a payload, a block and
 * what a decoder needs.  The block has the size that the header states or that stored blocks have,
 * up to 2047 MiB, or 64 MiB if the header is damaged. */
#define QRX_SEAL 1u
#define QRX_KEEP_DAMAGED 2u
#define QRX_SEARCH 4u

/* Both functions must be thread-safe.  Level 9 doesn't use them for its match finder, which
 * reserves address space from the system. */
typedef struct qrx_allocator {
    /* Returns `size` bytes (1 or more), aligned for any type; null on failure. */
    void* (*allocate)(void* context, size_t size);
    /* Frees what allocate() returned for the same `size`; `memory` is never null. */
    void (*release)(void* context, void* memory, size_t size);
    void* context;
} qrx_allocator;

#define QRX_NO_BLOCK UINT64_MAX

/* What failed or is damaged, and where.  Numbers that don't apply are 0. */
typedef struct qrx_event {
    size_t struct_size;
    qrx_status what;
    int system_error; /* errno of a system call, or the error number of a callback */
    uint64_t block;   /* index of the block, or QRX_NO_BLOCK */
    uint64_t offset;  /* of the record or bytes in question, in the .qrx file */
    /* Number of bytes expected and found.  QRX_CHECKSUM_MISMATCH: the seal, and the CRC-32 of the
     * decoded original.  QRX_OVER_LIMIT: the bytes needed, and the memory limit.
     * QRX_BLOCK_MISSING: `wanted` is the number of missing blocks from `block` on, 0 if unknown. */
    uint64_t wanted;
    uint64_t got;
} qrx_event;

typedef struct qrx_options {
    size_t struct_size;
    uint32_t threads; /* worker threads, 0 to QRX_MAX_THREADS; 0: the calling thread codes.  No more
                         are started than the file has blocks, none for a single block */
    uint32_t flags;   /* QRX_SEAL, QRX_KEEP_DAMAGED, QRX_SEARCH */
    /* Maximum number of bytes that the handle may allocate; 0: unlimited.  A call that may need
     * more fails with QRX_OVER_LIMIT before it allocates anything large. */
    uint64_t memory_limit;
    /* Both functions null: the default allocator.  Not used for the stacks of threads, nor for the
     * address range that level 9 reserves; memory_limit must allow for the whole range. */
    qrx_allocator allocator;
    /* Called after each block; may be null.  `done` is the offset in the original that the call has
     * reached, `total` the size of the original (0 if unknown).  A result other than 0 cancels: the
     * call returns QRX_CANCELLED. */
    int (*progress)(void* context, uint64_t done, uint64_t total);
    /* Called with the details of all damage and of most failures; may be null.  There are no events
     * for refused arguments, blocks or payloads that don't fit a buffer, cancellation, and handles
     * for which there is no memory.  `event` is valid only during the callback. */
    void (*event)(void* context, const qrx_event* event);
    void* context; /* first argument of progress() and event() */
} qrx_options;

/* In all functions below, a null `options` or input `params` means the defaults.  Options and
 * parameters are copied; they need not outlive the call. */

/* ------------------------------------------------------------------------------- whole buffers */

/* Returns an upper bound on the compressed size of `size` bytes, including a seal.  0 if the
 * parameters are invalid or the bound exceeds SIZE_MAX. */
QRX_API size_t qrx_compress_bound(const qrx_params* params, size_t size);

/* Compresses `size` bytes into an image: a complete .qrx file in memory.  `*dest_size` receives
 * the size of the image.  A capacity of qrx_compress_bound() always suffices; with less, the call
 * can fail with QRX_BUFFER_TOO_SMALL. */
QRX_API qrx_status qrx_compress(const qrx_params* params, const qrx_options* options,
                                const void* src, size_t size, void* dest, size_t capacity,
                                size_t* dest_size);

/* Gets the size of the original from the header of an image; the first 32 bytes are enough.  The
 * header of an untrusted or damaged image can hold any size. */
QRX_API qrx_status qrx_decompressed_size(const void* src, size_t size, uint64_t* original_size);

/* Decompresses an image.  Fails with QRX_BUFFER_TOO_SMALL if `capacity` is less than the size of
 * the original, and otherwise checks layout, blocks and seal as qrx_reader_test() does, up to the
 * first fault.  `*dest_size` receives the number of valid bytes at `dest`, also on failure: those
 * before the fault. */
QRX_API qrx_status qrx_decompress(const qrx_options* options, const void* src, size_t size,
                                  void* dest, size_t capacity, size_t* dest_size);

/* -------------------------------------------------------------------------------------- reader */

/* A .qrx file open for reading. */
typedef struct qrx_reader qrx_reader;

/* Positioned input. */
typedef struct qrx_source {
    size_t struct_size;
    /* Reads `size` bytes at `offset`, or fewer at the end of the file; `*got` receives their
     * number.  Returns 0, or an error number for qrx_event.system_error. */
    int (*read)(void* context, uint64_t offset, void* dest, size_t size, size_t* got);
    uint64_t size; /* of the .qrx file, in bytes */
    void* context;
} qrx_source;

typedef struct qrx_info {
    size_t struct_size;
    uint64_t original_size;
    uint64_t file_size;     /* of the .qrx file */
    uint64_t block_size;    /* of every block but the last */
    uint64_t block_count;   /* of the original; 0 if it is empty */
    uint64_t blocks_found;  /* blocks that have a record */
    uint64_t stored_blocks; /* blocks found that are not compressed */
    uint32_t is_sealed;     /* 1: the file ends with a seal */
    uint32_t seal;          /* CRC-32 of the original; 0 without a seal */
    /* The first fault that header and record heads show: QRX_TRUNCATED, QRX_CORRUPT,
     * QRX_BLOCK_MISSING, QRX_BLOCK_REPEATED or QRX_TRAILING_BYTES; with QRX_SEARCH also
     * QRX_NOT_QRX.  QRX_OK if there is none. */
    qrx_status layout;
    uint32_t reserved; /* 0 */
} qrx_info;

typedef struct qrx_block_info {
    size_t struct_size;
    uint64_t original_offset; /* of the block in the original */
    uint64_t length;          /* of the block, in bytes */
    uint64_t offset;          /* of the payload in the .qrx file */
    uint64_t payload_size;    /* in bytes */
    uint32_t is_stored;       /* 1: the payload is the (filtered) block itself */
    uint32_t is_found;        /* 0: no record; `offset`, `payload_size` and `is_stored` are 0 */
} qrx_block_info;

/* Opens a file by name, which is in the ANSI code page on Windows.  Only the header has to be
 * intact; with QRX_SEARCH, not even that.  Missing or damaged records show in qrx_info.layout.
 * On failure `*reader` is null, here and in the next two functions. */
QRX_API qrx_status qrx_reader_open(qrx_reader** reader, const char* name,
                                   const qrx_options* options);

/* Opens a file that is read through a callback.  `source->context` must outlive the reader. */
QRX_API qrx_status qrx_reader_open_source(qrx_reader** reader, const qrx_source* source,
                                          const qrx_options* options);

/* Opens an image, which must outlive the reader. */
QRX_API qrx_status qrx_reader_open_memory(qrx_reader** reader, const void* image, size_t size,
                                          const qrx_options* options);

/* Describe the file, its parameters and one of its blocks, from what opening it has read.  Fail
 * with QRX_BAD_ARGUMENT if `struct_size` isn't set or `block` isn't below qrx_info.block_count. */
QRX_API qrx_status qrx_reader_info(const qrx_reader* reader, qrx_info* info);
QRX_API qrx_status qrx_reader_params(const qrx_reader* reader, qrx_params* params);
QRX_API qrx_status qrx_reader_block_info(const qrx_reader* reader, uint64_t block,
                                         qrx_block_info* info);

/* Reads `size` bytes of the original at `offset`, or fewer at its end.  `*got` receives the number
 * of valid bytes at `dest`, also on failure: those before the fault.  A failed call can be
 * repeated. With threads, blocks are decoded ahead while each call starts where the previous one
 * ended.
 *
 * Once every block of a sealed file has been read from, in any order, since the file was opened or
 * last tested, the call that completes the set checks the seal.  On QRX_CHECKSUM_MISMATCH, `*got`
 * counts all bytes delivered, and any bytes of the file may be wrong. */
QRX_API qrx_status qrx_reader_read(qrx_reader* reader, uint64_t offset, void* dest, size_t size,
                                   size_t* got);

/* Reads a whole block, as qrx_reader_read() does.  `*size` receives the number of valid bytes.
 * Fails with QRX_BUFFER_TOO_SMALL if `capacity` is less than qrx_block_info.length. */
QRX_API qrx_status qrx_reader_block(qrx_reader* reader, uint64_t block, void* dest, size_t capacity,
                                    size_t* size);

/* Reads the payload of a block as it is in the file, for qrx_writer_raw_block().  `*size` receives
 * its size.  Fails with QRX_BLOCK_MISSING if the block has no record, and with QRX_BUFFER_TOO_SMALL
 * if `capacity` is less than qrx_block_info.payload_size. */
QRX_API qrx_status qrx_reader_payload(qrx_reader* reader, uint64_t block, void* dest,
                                      size_t capacity, size_t* size);

/* Decodes the whole file and checks that the layout is valid, that each block has exactly one
 * record and decodes to its length, that each payload ends exactly where its block ends, and that
 * the seal matches.  A sealed file must also be exactly as this library writes it, even where other
 * functions ignore differences, such as in reserved bytes.  Reports all faults to event() and
 * returns the first. */
QRX_API qrx_status qrx_reader_test(qrx_reader* reader);

/* Closes and frees a reader; null is allowed. */
QRX_API void qrx_reader_close(qrx_reader* reader);

/* -------------------------------------------------------------------------------------- writer */

/* A .qrx file open for writing.  With threads, a failure may concern bytes of an earlier call.
 * QRX_BAD_ARGUMENT changes nothing.  After any other failure, every further call returns the same
 * status, and the writer can only be closed. */
typedef struct qrx_writer qrx_writer;

/* Positioned output.  Writes are sequential, from offset 0 on.  If the size of the original is
 * unknown at the start, they begin at offset 32, and the header, 32 bytes, is written last. */
typedef struct qrx_sink {
    size_t struct_size;
    /* Writes `size` bytes at `offset`.  Returns 0, or an error number for
     * qrx_event.system_error. */
    int (*write)(void* context, uint64_t offset, const void* src, size_t size);
    void* context;
} qrx_sink;

#define QRX_UNKNOWN_SIZE UINT64_MAX

/* Creates a file, under a temporary name in the directory of `name`.  qrx_writer_finish() renames
 * it to `name`, which atomically replaces an existing file or link.  Fails with QRX_OPEN_FAILED if
 * `name` is a directory, a device or a pipe, or a link to one.  If the process changes its current
 * directory meanwhile, that has no effect on the file.
 *
 * `original_size` is the size of the original, or QRX_UNKNOWN_SIZE.  If it is known, appending more
 * bytes fails with QRX_BAD_ARGUMENT, and so does qrx_writer_finish() after fewer, until the rest is
 * appended; a small original then takes less memory, and progress() knows the total.  On failure
 * `*writer` is null, here and in the next function. */
QRX_API qrx_status qrx_writer_open(qrx_writer** writer, const char* name, uint64_t original_size,
                                   const qrx_params* params, const qrx_options* options);

/* Writes a file through a callback.  `sink->context` must outlive the writer.  If `original_size`
 * is known, all writes are sequential, so the sink may be a pipe. */
QRX_API qrx_status qrx_writer_open_sink(qrx_writer** writer, const qrx_sink* sink,
                                        uint64_t original_size, const qrx_params* params,
                                        const qrx_options* options);

/* Appends `size` bytes of the original. */
QRX_API qrx_status qrx_writer_write(qrx_writer* writer, const void* src, size_t size);

/* Lends the writer's block buffer, which saves a copy: `*dest` receives the address for the next
 * bytes of the original, and `*room` how many fit there, at least 1.  Then qrx_writer_advance()
 * appends the first `size` of them.  The address is valid until the next call. */
QRX_API qrx_status qrx_writer_buffer(qrx_writer* writer, void** dest, size_t* room);
QRX_API qrx_status qrx_writer_advance(qrx_writer* writer, size_t size);

/* Appends a block that is already coded with the writer's parameters; its payload comes from
 * qrx_reader_payload() or qrx_codec_compress().  `length` is the length of the block: the block
 * size, or less for the last one.  Allowed at block boundaries only.  `crc` points to the CRC-32 of
 * the block's original content.  If it is null, a writer with QRX_SEAL decodes the block to compute
 * it, and this or a later call fails with a reader's status if the block is damaged. */
QRX_API qrx_status qrx_writer_raw_block(qrx_writer* writer, const void* payload, size_t size,
                                        size_t length, const uint32_t* crc);

/* Writes the last block, the seal and the header, and gives the file its name.  On failure, a file
 * that already has that name is unchanged.  After success the writer can only be closed. */
QRX_API qrx_status qrx_writer_finish(qrx_writer* writer);

/* Frees a writer; null is allowed.  A file created by name is removed unless qrx_writer_finish()
 * succeeded. */
QRX_API void qrx_writer_close(qrx_writer* writer);

/* -------------------------------------------------------------------------------- single blocks */

/* Codes single blocks, and reuses its memory from block to block. */
typedef struct qrx_codec qrx_codec;

/* Bytes that qrx_codec_compress() needs at `payload` in addition to the length of the block. */
#define QRX_CODEC_SLACK 4096u

/* Creates a codec.  Uses `memory_limit` and `allocator` of the options only.  On failure `*codec`
 * is null. */
QRX_API qrx_status qrx_codec_new(qrx_codec** codec, const qrx_params* params,
                                 const qrx_options* options);

/* Lends the codec's block buffer, with room for `length` bytes, at most the block size.  It is
 * valid until the next call.  qrx_codec_compress() doesn't copy a block that is there, and leaves
 * its content undefined. */
QRX_API qrx_status qrx_codec_buffer(qrx_codec* codec, size_t length, void** block);

/* Compresses a block.  `length` is at least 1 and at most the block size.  `capacity` must be at
 * least `length` + QRX_CODEC_SLACK; all of that may be overwritten.  `*size` receives the size of
 * the payload, at most `length`.  If it equals `length`, the block is stored: the payload is the
 * (filtered) block itself. */
QRX_API qrx_status qrx_codec_compress(qrx_codec* codec, const void* block, size_t length,
                                      void* payload, size_t capacity, size_t* size);

/* Decompresses a block, which has exactly `length` bytes.  `size` is at most `length`.  Fails with
 * QRX_BLOCK_SHORT or QRX_INEXACT_END if the payload is found to be damaged; damage can also go
 * unnoticed and give wrong bytes, since payloads have no checksum. */
QRX_API qrx_status qrx_codec_decompress(qrx_codec* codec, const void* payload, size_t size,
                                        void* block, size_t length);

/* Frees a codec; null is allowed. */
QRX_API void qrx_codec_free(qrx_codec* codec);

/* ------------------------------------------------------------------------------------ checksums */

/* Updates a running CRC-32, as in gzip and PNG, with `size` bytes and returns it.  The first
 * `crc` is 0. */
QRX_API uint32_t qrx_crc32(uint32_t crc, const void* data, size_t size);

/* Returns the CRC-32 of two pieces concatenated, from the CRC-32 of each and the size of the second
 * in bytes. */
QRX_API uint32_t qrx_crc32_combine(uint32_t first, uint32_t second, uint64_t second_size);

#ifdef __cplusplus
}
#endif

#endif
