/* buffer.c - compresses and decompresses one buffer
 *
 *     cc buffer.c -lqrx && ./a.out FILE
 */
#include <qrx.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Returns the content of a file, which the caller frees; null on failure. */
static unsigned char* load(const char* name, size_t* size)
{
    unsigned char* data = NULL;
    FILE* file = fopen(name, "rb");
    if (file == NULL) return NULL;
    if (fseek(file, 0, SEEK_END) == 0) {
        const long length = ftell(file);
        *size = length > 0 ? (size_t)length : 0;
        data = malloc(*size + 1);
        rewind(file);
        if (data != NULL && fread(data, 1, *size, file) != *size) {
            free(data);
            data = NULL;
        }
    }
    fclose(file);
    return data;
}

/* Compresses `size` bytes, decompresses the result and compares. */
static qrx_status round_trip(const unsigned char* data, size_t size)
{
    qrx_params params = {.struct_size = sizeof params}; /* all else: the defaults */
    qrx_options options = {.struct_size = sizeof options};
    const size_t bound = qrx_compress_bound(&params, size);
    unsigned char* image = malloc(bound);
    unsigned char* restored = malloc(size + 1);
    size_t image_size = 0;
    size_t restored_size = 0;
    qrx_status status = QRX_NO_MEMORY;

    options.threads = 2;
    options.flags = QRX_SEAL; /* ends the image with a CRC-32 of the original */
    if (image != NULL && restored != NULL)
        status = qrx_compress(&params, &options, data, size, image, bound, &image_size);
    if (status == QRX_OK)
        status = qrx_decompress(&options, image, image_size, restored, size, &restored_size);
    if (status == QRX_OK) {
        const int is_same = restored_size == size && memcmp(data, restored, size) == 0;
        printf("%zu -> %zu bytes, %s\n", size, image_size, is_same ? "restored" : "different");
    }
    free(image);
    free(restored);
    return status;
}

int main(int argc, char** argv)
{
    size_t size = 0;
    unsigned char* data = argc == 2 ? load(argv[1], &size) : NULL;
    qrx_status status;
    if (data == NULL) {
        fprintf(stderr, "usage: buffer FILE\n");
        return 1;
    }
    status = round_trip(data, size);
    free(data);
    if (status != QRX_OK) fprintf(stderr, "buffer: %s\n", qrx_status_text(status));
    return status != QRX_OK;
}
