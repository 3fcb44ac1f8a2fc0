/* faults/client.c - compresses or restores one file with libqrx
 *
 *     client compress|restore buffers|callbacks|file SOURCE DESTINATION THREADS CELL
 *
 * Only the library's calls are subject to faults: in the modes `buffers` and `file`, the client
 * reads or writes the other side before or after.  In the mode `callbacks`, the callbacks read and
 * write the files, subject to faults, and report errors as errno.  Prints the status, the number of
 * events, the status and error number of the last event, and the number of valid bytes.  On failure
 * the client writes the valid bytes of a restored file, and nothing of a compressed one.
 */
#include "qrx.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

void fault_suspend(int suspend) __attribute__((weak));

static unsigned char source[16 << 20];
static unsigned char dest[17 << 20];
static size_t source_size;
static size_t dest_size;

static void suspend(int on)
{
    if (fault_suspend != NULL) fault_suspend(on);
}

static void refuse(const char* what)
{
    perror(what);
    exit(98);
}

struct events {
    unsigned count;
    qrx_status what;
    int error;
};

static void on_event(void* context, const qrx_event* event)
{
    struct events* const events = context;
    ++events->count;
    events->what = event->what;
    events->error = event->system_error;
}

struct call {
    qrx_params params;
    qrx_options options;
    struct events events;
    const char* source_name;
    const char* dest_name;
    int source_handle;
    int dest_handle;
};

static void load(const char* name)
{
    const int handle = open(name, O_RDONLY);
    ssize_t got;
    if (handle < 0) refuse(name);
    while ((got = read(handle, source + source_size, sizeof source - source_size)) > 0)
        source_size += (size_t)got;
    if (got < 0) refuse(name);
    close(handle);
}

static void store(const char* name, const void* content, size_t size)
{
    const int handle = open(name, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (handle < 0 || write(handle, content, size) != (ssize_t)size) refuse(name);
    close(handle);
}

/* Passes short and interrupted reads on to the library. */
static int read_callback(void* context, uint64_t offset, void* to, size_t size, size_t* got)
{
    const ssize_t count = pread(*(int*)context, to, size, (off_t)offset);
    *got = count < 0 ? 0 : (size_t)count;
    return count < 0 ? errno : 0;
}

/* Has to write everything: it can't return a count. */
static int write_callback(void* context, uint64_t offset, const void* from, size_t size)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t count =
            pwrite(*(int*)context, (const char*)from + done, size - done, (off_t)(offset + done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        done += (size_t)count;
    }
    return 0;
}

static qrx_status compress_buffers(struct call* call)
{
    return qrx_compress(&call->params, &call->options, source, source_size, dest, sizeof dest,
                        &dest_size);
}

/* Writes the source in pieces and finishes. */
static qrx_status write_all(qrx_writer* writer)
{
    const size_t piece = 300001;
    qrx_status result = QRX_OK;
    for (size_t done = 0; done < source_size && result == QRX_OK; done += piece)
        result = qrx_writer_write(writer, source + done,
                                  source_size - done < piece ? source_size - done : piece);
    return result == QRX_OK ? qrx_writer_finish(writer) : result;
}

static qrx_status compress_file(struct call* call, int by_callbacks)
{
    qrx_writer* writer = NULL;
    qrx_sink sink = {sizeof sink, write_callback, &call->dest_handle};
    qrx_status result = by_callbacks ? qrx_writer_open_sink(&writer, &sink, QRX_UNKNOWN_SIZE,
                                                            &call->params, &call->options)
                                     : qrx_writer_open(&writer, call->dest_name, QRX_UNKNOWN_SIZE,
                                                       &call->params, &call->options);
    if ((writer != NULL) != (result == QRX_OK)) refuse("a writer in spite of a failure");
    if (result == QRX_OK) result = write_all(writer);
    qrx_writer_close(writer);
    return result;
}

static qrx_status restore_buffers(struct call* call)
{
    return qrx_decompress(&call->options, source, source_size, dest, sizeof dest, &dest_size);
}

static qrx_status read_all(qrx_reader* reader)
{
    const size_t piece = 700001;
    qrx_info info = {.struct_size = sizeof info};
    qrx_status result = qrx_reader_info(reader, &info);
    if (result == QRX_OK) result = info.layout;
    while (dest_size < info.original_size && result == QRX_OK) {
        size_t got = 0;
        result = qrx_reader_read(reader, dest_size, dest + dest_size, piece, &got);
        dest_size += got;
    }
    return result;
}

static qrx_status restore_file(struct call* call, int by_callbacks)
{
    qrx_reader* reader = NULL;
    qrx_source input = {sizeof input, read_callback, 0, &call->source_handle};
    qrx_status result;
    if (by_callbacks) {
        input.size = (uint64_t)lseek(call->source_handle, 0, SEEK_END);
        result = qrx_reader_open_source(&reader, &input, &call->options);
    } else {
        result = qrx_reader_open(&reader, call->source_name, &call->options);
    }
    if ((reader != NULL) != (result == QRX_OK)) refuse("a reader in spite of a failure");
    if (result == QRX_OK) result = read_all(reader);
    qrx_reader_close(reader);
    return result;
}

int main(int argc, char** argv)
{
    if (argc != 7) return 97;
    suspend(1);
    const int compresses = strcmp(argv[1], "compress") == 0;
    const int by_callbacks = strcmp(argv[2], "callbacks") == 0;
    const int by_buffers = strcmp(argv[2], "buffers") == 0;
    struct call call;
    memset(&call, 0, sizeof call);
    call.params.struct_size = sizeof call.params;
    call.params.method = (uint32_t)(argv[6][0] - '0');
    call.params.level = (uint32_t)(argv[6][1] - '0');
    call.params.block_mib = 1;
    call.params.hash_bits = 14;
    call.options.struct_size = sizeof call.options;
    call.options.threads = (uint32_t)atoi(argv[5]);
    call.options.flags = QRX_SEAL;
    call.options.event = on_event;
    call.options.context = &call.events;
    call.source_name = argv[3];
    call.dest_name = argv[4];
    if (compresses || by_buffers) load(call.source_name);
    suspend(0);
    if (by_callbacks && compresses)
        call.dest_handle = open(call.dest_name, O_RDWR | O_CREAT | O_TRUNC, 0666);
    if (by_callbacks && !compresses) call.source_handle = open(call.source_name, O_RDONLY);
    if (call.dest_handle < 0 || call.source_handle < 0) refuse("open");
    const qrx_status result =
        compresses   ? by_buffers ? compress_buffers(&call) : compress_file(&call, by_callbacks)
          : by_buffers ? restore_buffers(&call)
                     : restore_file(&call, by_callbacks);
    suspend(1);
    if (by_callbacks && compresses && result != QRX_OK) unlink(call.dest_name);
    if (by_buffers && compresses && result == QRX_OK) store(call.dest_name, dest, dest_size);
    if (!compresses) store(call.dest_name, dest, dest_size);
    printf("%d %u %d %d\n", (int)result, call.events.count, (int)call.events.what,
           call.events.error);
    return 0;
}
