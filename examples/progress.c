/* progress.c - compresses one file and shows the progress
 *
 *     cc progress.c -lqrx && ./a.out FILE FILE.qrx
 *
 * The result gets its name when it is complete; a failure leaves no file.
 */
#include <qrx.h>

#include <stdio.h>

struct job {
    const char* name;
    uint64_t size;
};

/* Called after each block.  A result other than 0 would cancel. */
static int show_progress(void* context, uint64_t done, uint64_t total)
{
    const struct job* job = context;
    (void)total; /* 0: unknown to the writer */
    if (job->size != 0)
        fprintf(stderr, "\r%s: %3.0f %%", job->name, 100.0 * (double)done / (double)job->size);
    return 0;
}

/* Called with the details of a failure. */
static void show_event(void* context, const qrx_event* event)
{
    const struct job* job = context;
    fprintf(stderr, "\n%s: %s (error %d)\n", job->name, qrx_status_text(event->what),
            event->system_error);
}

/* Reads the file straight into the writer's block buffer. */
static qrx_status copy(FILE* source, qrx_writer* writer)
{
    for (;;) {
        void* dest = NULL;
        size_t room = 0;
        size_t got;
        qrx_status status = qrx_writer_buffer(writer, &dest, &room);
        if (status != QRX_OK) return status;
        got = fread(dest, 1, room, source);
        status = qrx_writer_advance(writer, got);
        if (status != QRX_OK) return status;
        if (got < room) return ferror(source) ? QRX_READ_FAILED : QRX_OK;
    }
}

static qrx_status compress(FILE* source, struct job* job, const char* dest)
{
    qrx_params params = {.struct_size = sizeof params};
    qrx_options options = {.struct_size = sizeof options};
    qrx_writer* writer = NULL;
    qrx_status status;

    if (fseek(source, 0, SEEK_END) == 0 && ftell(source) > 0) job->size = (uint64_t)ftell(source);
    rewind(source);
    params.method = 4;
    params.level = 2;
    params.block_mib = 4;
    options.threads = 2;
    options.flags = QRX_SEAL;
    options.progress = show_progress;
    options.event = show_event;
    options.context = job;
    status = qrx_writer_open(&writer, dest, &params, &options);
    if (status == QRX_OK) status = copy(source, writer);
    if (status == QRX_OK) status = qrx_writer_finish(writer);
    qrx_writer_close(writer);
    return status;
}

int main(int argc, char** argv)
{
    struct job job = {NULL, 0};
    qrx_status status = QRX_OPEN_FAILED;
    FILE* source = argc == 3 ? fopen(argv[1], "rb") : NULL;
    if (source == NULL) {
        fprintf(stderr, "usage: progress FILE FILE.qrx\n");
        return 1;
    }
    job.name = argv[1];
    status = compress(source, &job, argv[2]);
    fclose(source);
    fprintf(stderr, "\n%s: %s\n", argv[1], qrx_status_text(status));
    return status != QRX_OK;
}
