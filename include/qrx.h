/* qrx.h - compresses and restores .qrx files, in files, buffers and blocks
 *
 * A .qrx file is a header, then one record for each block of the original, then an optional seal.
 * Blocks are coded independently, so several threads can work on one file, and any range of the
 * original can be read without the rest.
 *
 *     qrx_compress(), qrx_decompress()    whole buffers
 *     qrx_reader                          a file: information, any range, test
 *     qrx_writer                          a file, written piece by piece
 *     qrx_codec                           single blocks, for formats of your own
 *
 * The library never prints, never ends the process and keeps no state outside its handles.  A
 * handle is used by one thread at a time; different handles are independent.  All callbacks run on
 * the thread that called the library, except those of the allocator, which any thread may call.
 *
 * Every function that can fail returns a qrx_status.  Output arguments that it doesn't mention are
 * unchanged on failure.  A structure that may grow starts with its size, which the caller sets to
 * sizeof; all its other fields mean the default when they are zero:
 *
 *     qrx_params params = {.struct_size = sizeof params};         C, and C++ from C++20 on
 *     qrx_params params{}; params.struct_size = sizeof params;    C++
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

/* The version of the library in use, as "0.94.0". */
QRX_API const char* qrx_version(void);

typedef enum qrx_status {
    QRX_OK = 0,
    QRX_BAD_ARGUMENT = 1,       /* an argument is out of range, or calls are in the wrong order */
    QRX_NO_MEMORY = 2,          /* memory is exhausted */
    QRX_NO_THREAD = 3,          /* the system starts no thread */
    QRX_OPEN_FAILED = 4,        /* a file can't be opened or created */
    QRX_READ_FAILED = 5,        /* the system or the source reports a read error */
    QRX_WRITE_FAILED = 6,       /* the system or the sink reports a write error */
    QRX_NOT_QRX = 7,            /* not a .qrx file */
    QRX_TRUNCATED = 8,          /* the file ends too early */
    QRX_CORRUPT = 9,            /* the header or a record head is invalid */
    QRX_CHECKSUM_MISMATCH = 10, /* the content doesn't match the seal */
    QRX_OVER_LIMIT = 11,        /* more memory is needed than the memory limit allows */
    QRX_CANCELLED = 12,         /* cancelled by the progress callback */
    QRX_BUFFER_TOO_SMALL = 13,  /* the destination has too little room */
    QRX_BLOCK_SHORT = 14,       /* a block decodes to fewer bytes than it has */
    QRX_INEXACT_END = 15,       /* a block's payload does not end where its content ends */
    QRX_BLOCK_MISSING = 16,     /* a block has no record */
    QRX_BLOCK_REPEATED = 17,    /* a block has more than one record */
    QRX_TRAILING_BYTES = 18     /* bytes that are no seal follow the last record */
} qrx_status;

/* A sentence for a status, without a full stop.  Never null, for any value. */
QRX_API const char* qrx_status_text(qrx_status status);

/* ---------------------------------------------------------------------------------- parameters */

#define QRX_FILTER_NONE 0u
#define QRX_FILTER_X86 1u   /* for x86 machine code */
#define QRX_FILTER_DELTA 2u /* for records of three bytes, such as pixels */

/* How a file is compressed.  The same parameters and the same original give the same file on every
 * machine and with any number of threads. */
typedef struct qrx_params {
    size_t struct_size;
    uint32_t method;       /* 1 to 5; 0: method 3 at level 3, whatever `level` is */
    uint32_t level;        /* 0 to 9 */
    uint32_t context_bits; /* literal context bits, used by method 4: 0 to 8 */
    uint32_t filter;       /* QRX_FILTER_... */
    uint32_t hash_bits;    /* log2 of the hash table's entries, 10 to 30; 0: by level */
    uint32_t chain_bits;   /* log2 of the candidates per hash value, 1 to 8; 0: by level */
    uint32_t block_mib;    /* block size in MiB, 1 to 2047; 0: 32.  At most 16 at levels 4 to 7,
                              where larger values mean 16 */
} qrx_params;

/* Replaces the fields that mean a default by the values that are used, which a file's header also
 * holds.  Fails with QRX_BAD_ARGUMENT if a field is out of range. */
QRX_API qrx_status qrx_params_settle(qrx_params* params);

/* Sets `filter`, and `context_bits` if it is 0, by the type of a file: from the first bytes of its
 * content (1 MiB is enough) and from its name, which may be null.  `sample` may be null if `size`
 * is 0. */
QRX_API qrx_status qrx_params_for_type(qrx_params* params, const void* sample, size_t size,
                                       const char* name);

/* Upper bound, in bytes, of what compressing or restoring with `threads` threads allocates, for
 * blocks of the parameters' size.  A reader also takes up to 16 bytes for each block of the file.
 * 0 if the parameters are invalid. */
QRX_API uint64_t qrx_compress_memory(const qrx_params* params, uint32_t threads);
QRX_API uint64_t qrx_decompress_memory(const qrx_params* params, uint32_t threads);

/* ------------------------------------------------------------------------------------- options */

#define QRX_MAX_THREADS 256u

/* Flags of qrx_options. */
#define QRX_SEAL 1u         /* writers: end the file with a checksum of the original */
#define QRX_KEEP_DAMAGED 2u /* readers: report damage as events only, and deliver what can be
                               decoded; zeros stand for the rest */

/* All callbacks of an allocator may be called by several threads at once. */
typedef struct qrx_allocator {
    /* Returns `size` bytes (1 or more), aligned for any type; null if there is no memory. */
    void* (*allocate)(void* context, size_t size);
    /* Frees what allocate() returned for the same size; `memory` is never null. */
    void (*release)(void* context, void* memory, size_t size);
    void* context;
} qrx_allocator;

#define QRX_NO_BLOCK UINT64_MAX

/* What was found wrong, and where. */
typedef struct qrx_event {
    size_t struct_size;
    qrx_status what;
    int system_error; /* errno of a system call or value of a callback; 0 if there is none */
    uint64_t block;   /* index of the block, or QRX_NO_BLOCK */
    uint64_t offset;  /* of the record or of the bytes concerned, in the .qrx file */
    uint64_t wanted;  /* bytes that should be there; 0 if that says nothing */
    uint64_t got;     /* bytes that are there */
} qrx_event;

typedef struct qrx_options {
    size_t struct_size;
    uint32_t threads; /* that code blocks, 0 to QRX_MAX_THREADS; 0: the calling thread does */
    uint32_t flags;   /* QRX_SEAL, QRX_KEEP_DAMAGED */
    /* Bytes that the handle may allocate; 0: any.  Checked before anything large is allocated:
     * needing more is QRX_OVER_LIMIT. */
    uint64_t memory_limit;
    qrx_allocator allocator; /* all null: the C library's */
    /* Called after each block with the bytes of the original that are done, and their total (0 if
     * unknown).  Any result but 0 cancels: the call returns QRX_CANCELLED. */
    int (*progress)(void* context, uint64_t done, uint64_t total);
    /* Called for each failure and for all damage found. */
    void (*event)(void* context, const qrx_event* event);
    void* context; /* of progress() and event() */
} qrx_options;

/* In all functions below, `options` may be null: the defaults.  Options and parameters are copied;
 * they need not outlive the call. */

/* ------------------------------------------------------------------------------- whole buffers */

/* Upper bound of the size of a compressed buffer of `size` bytes.  0 if the parameters are
 * invalid, or if the result exceeds SIZE_MAX. */
QRX_API size_t qrx_compress_bound(const qrx_params* params, size_t size);

/* Compresses `size` bytes into the image of a .qrx file.  `params` may be null: the defaults.
 * `*dest_size` receives the size of the image.  With a capacity of qrx_compress_bound() or more the
 * destination is never too small. */
QRX_API qrx_status qrx_compress(const qrx_params* params, const qrx_options* options,
                                const void* src, size_t size, void* dest, size_t capacity,
                                size_t* dest_size);

/* The size of the original of the .qrx image at `src`, of which the first 32 bytes are enough.  It
 * comes from the header and can be wrong in a damaged image. */
QRX_API qrx_status qrx_decompressed_size(const void* src, size_t size, uint64_t* original_size);

/* Restores the image of a .qrx file, and does all checks of qrx_reader_test().  `*dest_size`
 * receives the number of valid bytes at `dest`: the size of the original, or where the first damage
 * begins. */
QRX_API qrx_status qrx_decompress(const qrx_options* options, const void* src, size_t size,
                                  void* dest, size_t capacity, size_t* dest_size);

/* -------------------------------------------------------------------------------------- reader */

/* A .qrx file that is open for reading. */
typedef struct qrx_reader qrx_reader;

/* Positioned input. */
typedef struct qrx_source {
    size_t struct_size;
    /* Reads up to `size` bytes at `offset` and sets `*got`, to less than `size` only at the end.
     * Returns 0, or an error number, which the event passes on. */
    int (*read)(void* context, uint64_t offset, void* dest, size_t size, size_t* got);
    uint64_t size; /* of the .qrx file, in bytes */
    void* context;
} qrx_source;

typedef struct qrx_info {
    size_t struct_size;
    uint64_t original_size;
    uint64_t file_size;   /* of the .qrx file */
    uint64_t block_size;  /* of every block but the last */
    uint64_t block_count; /* 0 if the original is empty */
    uint64_t blocks_found;
    uint64_t stored_blocks; /* among those found: kept uncompressed */
    uint32_t is_sealed;     /* 1: `seal` is the CRC-32 of the original */
    uint32_t seal;
    /* What the layout of the file shows: QRX_OK, QRX_TRUNCATED, QRX_CORRUPT, QRX_BLOCK_MISSING,
     * QRX_BLOCK_REPEATED or QRX_TRAILING_BYTES. */
    qrx_status layout;
} qrx_info;

typedef struct qrx_block_info {
    size_t struct_size;
    uint64_t original_offset; /* of the block in the original */
    uint64_t length;          /* of the block, in bytes */
    uint64_t offset;          /* of the payload in the .qrx file */
    uint64_t payload_size;
    uint32_t is_stored; /* 1: the payload is the (filtered) block itself */
    uint32_t is_found;  /* 0: the file has no record of it, and the last three are 0 */
} qrx_block_info;

/* Opens a file by name.  A file whose header is readable opens even if its end is missing or its
 * records are damaged: see qrx_info.layout.  On failure `*reader` is null. */
QRX_API qrx_status qrx_reader_open(qrx_reader** reader, const char* name,
                                   const qrx_options* options);

/* Opens a file that callbacks read.  `source->context` must outlive the reader. */
QRX_API qrx_status qrx_reader_open_source(qrx_reader** reader, const qrx_source* source,
                                          const qrx_options* options);

/* Opens the image of a .qrx file in memory, which must outlive the reader. */
QRX_API qrx_status qrx_reader_open_memory(qrx_reader** reader, const void* image, size_t size,
                                          const qrx_options* options);

QRX_API qrx_status qrx_reader_info(const qrx_reader* reader, qrx_info* info);
QRX_API qrx_status qrx_reader_params(const qrx_reader* reader, qrx_params* params);
QRX_API qrx_status qrx_reader_block_info(const qrx_reader* reader, uint64_t block,
                                         qrx_block_info* info);

/* Reads up to `size` bytes of the original from `offset` on.  `*got` receives the number of bytes
 * delivered: less than `size` at the end of the original, or if the call fails; those delivered
 * before the damage are valid.  With threads, following blocks are decoded ahead as long as calls
 * continue where the last one ended.  Once every byte of a sealed file has been read, the call that
 * read the last one checks the seal. */
QRX_API qrx_status qrx_reader_read(qrx_reader* reader, uint64_t offset, void* dest, size_t size,
                                   size_t* got);

/* Reads a whole block.  `*size` receives its length. */
QRX_API qrx_status qrx_reader_block(qrx_reader* reader, uint64_t block, void* dest,
                                    size_t capacity, size_t* size);

/* Reads the payload of a block as it is in the file, for qrx_writer_raw_block(). */
QRX_API qrx_status qrx_reader_payload(qrx_reader* reader, uint64_t block, void* dest,
                                      size_t capacity, size_t* size);

/* Decodes the whole file and checks all that can be checked: the layout, that each block has one
 * record and decodes to its length, that payloads end where their content ends, and the seal.
 * Reports every fault as an event and returns the first one. */
QRX_API qrx_status qrx_reader_test(qrx_reader* reader);

/* Closes a reader and frees it; null is allowed. */
QRX_API void qrx_reader_close(qrx_reader* reader);

/* -------------------------------------------------------------------------------------- writer */

/* A .qrx file that is being written. */
typedef struct qrx_writer qrx_writer;

/* Positioned output.  Offsets rise without gaps, except for the header at offset 0: it comes last
 * if the size of the original is unknown at the start. */
typedef struct qrx_sink {
    size_t struct_size;
    /* Writes `size` bytes at `offset`.  Returns 0, or an error number, which the event passes
     * on. */
    int (*write)(void* context, uint64_t offset, const void* src, size_t size);
    void* context;
} qrx_sink;

#define QRX_UNKNOWN_SIZE UINT64_MAX

/* Creates a file by name.  It appears under its name, and replaces an existing file, in
 * qrx_writer_finish(); until then it has a temporary name in the same directory.  `params` may be
 * null: the defaults.  On failure `*writer` is null. */
QRX_API qrx_status qrx_writer_open(qrx_writer** writer, const char* name, const qrx_params* params,
                                   const qrx_options* options);

/* Writes to callbacks.  `sink->context` must outlive the writer.  `original_size` is the number of
 * bytes that will be written, or QRX_UNKNOWN_SIZE.  If it is given, everything is written in order
 * and to the end, so that the sink may be a pipe, and qrx_writer_finish() fails with
 * QRX_BAD_ARGUMENT if another number of bytes was written. */
QRX_API qrx_status qrx_writer_open_sink(qrx_writer** writer, const qrx_sink* sink,
                                        uint64_t original_size, const qrx_params* params,
                                        const qrx_options* options);

/* Appends `size` bytes of the original. */
QRX_API qrx_status qrx_writer_write(qrx_writer* writer, const void* src, size_t size);

/* Lends the writer's own block buffer, to fill it without a copy: `*dest` receives where the next
 * bytes of the original belong and `*room` how many fit there, at least 1.
 * qrx_writer_advance() appends the first `size` of them.  Any other call ends the loan. */
QRX_API qrx_status qrx_writer_buffer(qrx_writer* writer, void** dest, size_t* room);
QRX_API qrx_status qrx_writer_advance(qrx_writer* writer, size_t size);

/* Appends a block whose payload is already coded with the writer's parameters: from
 * qrx_reader_payload() or qrx_codec_compress().  `length` is the length of the block; it is the
 * block size, except for the last block.  Allowed at block borders only.  `crc` points to the
 * CRC-32 of the block's original content; if it is null, a writer with QRX_SEAL decodes the
 * block, and fails with the status of a reader if that shows damage. */
QRX_API qrx_status qrx_writer_raw_block(qrx_writer* writer, const void* payload, size_t size,
                                        size_t length, const uint32_t* crc);

/* Completes the file: the last block, the seal, the header, the name.  On failure there is no file.
 * The writer can only be closed then. */
QRX_API qrx_status qrx_writer_finish(qrx_writer* writer);

/* Frees a writer; null is allowed.  Unless it was finished, nothing remains of a file opened by
 * name. */
QRX_API void qrx_writer_close(qrx_writer* writer);

/* -------------------------------------------------------------------------------- single blocks */

/* Codes single blocks and keeps its tables from one to the next. */
typedef struct qrx_codec qrx_codec;

/* Bytes that qrx_codec_compress() may write past the payload that it returns. */
#define QRX_CODEC_SLACK 4096u

/* Makes a codec.  Of the options, `memory_limit` and `allocator` apply.  On failure `*codec` is
 * null. */
QRX_API qrx_status qrx_codec_new(qrx_codec** codec, const qrx_params* params,
                                 const qrx_options* options);

/* Lends the codec's own block buffer with room for `length` bytes, at most the block size.  A block
 * that is compressed from there is not copied; it is undefined afterwards.  Valid until the next
 * call. */
QRX_API qrx_status qrx_codec_buffer(qrx_codec* codec, size_t length, void** block);

/* Compresses a block of 1 byte to the block size.  `capacity` is `length` + QRX_CODEC_SLACK or
 * more.  `*size` receives the size of the payload, which is at most `length`; if it is `length`,
 * the block is stored. */
QRX_API qrx_status qrx_codec_compress(qrx_codec* codec, const void* block, size_t length,
                                      void* payload, size_t capacity, size_t* size);

/* Restores a block of exactly `length` bytes.  Fails with QRX_BLOCK_SHORT or QRX_INEXACT_END if the
 * payload is damaged; a damaged payload can also give wrong bytes unnoticed. */
QRX_API qrx_status qrx_codec_decompress(qrx_codec* codec, const void* payload, size_t size,
                                        void* block, size_t length);

/* Frees a codec; null is allowed. */
QRX_API void qrx_codec_free(qrx_codec* codec);

/* ------------------------------------------------------------------------------------ checksums */

/* The CRC-32 of gzip and PNG of `size` bytes, continued from `crc`, which is 0 at the start. */
QRX_API uint32_t qrx_crc32(uint32_t crc, const void* data, size_t size);

/* The CRC-32 of two pieces in a row, from those of the pieces and the second one's size. */
QRX_API uint32_t qrx_crc32_combine(uint32_t first, uint32_t second, uint64_t second_size);

#ifdef __cplusplus
}
#endif

#endif
