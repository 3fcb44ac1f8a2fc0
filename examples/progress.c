/* progress.c - compresses one file and shows the progress
 *
 *     cc progress.c -lqrx && ./a.out FILE FILE.qrx
 *
 * The result gets its name when it is complete; a failure leaves no file.
 */
#include <qrx.h>

#include <stdio.h>

/* Called after each block.  A result other than 0 would cancel. */
static int show_progress(void* context, uint64_t done, uint64_t total)
{
    const char* name = context;
    if (total != 0) fprintf(stderr, "\r%s: %3.0f %%", name, 100.0 * (double)done / (double)total);
    return 0;
}

/* Called with the details of a failure. */
static void show_event(void* context, const qrx_event* event)
{
    const char* name = context;
    fprintf(stderr, "\n%s: %s (error %d)\n", name, qrx_status_text(event->what),
            event->system_error);
}

/* Reads the file straight into the writer's block buffer, up to `size` bytes or, if that is
 * QRX_UNKNOWN_SIZE, up to the end. */
static qrx_status copy(FILE* source, uint64_t size, qrx_writer* writer)
{
    uint64_t done = 0;
    while (done != size) {
        void* dest = NULL;
        size_t room = 0;
        size_t got;
        qrx_status status = qrx_writer_buffer(writer, &dest, &room);
        if (status != QRX_OK) return status;
        got = fread(dest, 1, room, source);
        if (got == 0) break;
        status = qrx_writer_advance(writer, got);
        if (status != QRX_OK) return status;
        done += got;
    }
    if (ferror(source)) return QRX_READ_FAILED;
    return done == size || size == QRX_UNKNOWN_SIZE ? QRX_OK
                                                    : QRX_READ_FAILED; /* it became shorter */
}

/* Returns the size of a file, or QRX_UNKNOWN_SIZE: for a pipe, for files in /proc, which claim a
 * size of 0, and where the size doesn't fit in a long. */
static uint64_t size_of(FILE* file)
{
    long size = -1;
    if (fseek(file, 0, SEEK_END) == 0) size = ftell(file);
    rewind(file);
    return size > 0 ? (uint64_t)size : QRX_UNKNOWN_SIZE;
}

static qrx_status compress(FILE* source, char* name, const char* dest)
{
    qrx_params params = {.struct_size = sizeof params};
    qrx_options options = {.struct_size = sizeof options};
    const uint64_t size = size_of(source);
    qrx_writer* writer = NULL;
    qrx_status status;

    params.method = 4;
    params.level = 2;
    params.block_mib = 4;
    options.threads = 2;
    options.flags = QRX_SEAL;
    options.progress = show_progress;
    options.event = show_event;
    options.context = name;
    status = qrx_writer_open(&writer, dest, size, &params, &options);
    if (status == QRX_OK) status = copy(source, size, writer);
    if (status == QRX_OK) status = qrx_writer_finish(writer);
    qrx_writer_close(writer);
    return status;
}

int main(int argc, char** argv)
{
    qrx_status status;
    FILE* source = argc == 3 ? fopen(argv[1], "rb") : NULL;
    if (source == NULL) {
        fprintf(stderr, "usage: progress FILE FILE.qrx\n");
        return 1;
    }
    status = compress(source, argv[1], argv[2]);
    fclose(source);
    fprintf(stderr, "\n%s: %s\n", argv[1], qrx_status_text(status));
    return status != QRX_OK;
}
