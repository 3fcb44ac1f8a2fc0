/* Compresses and restores a buffer. */
#include <qrx.h>

#include <stdio.h>
#include <string.h>

static int check(qrx_status status, const char* call)
{
    if (status == QRX_OK) return 1;
    fprintf(stderr, "%s: %s\n", call, qrx_status_text(status));
    return 0;
}

static int round_trip(const char* text, size_t size)
{
    static char packed[4096];
    static char restored[4096];
    qrx_params params = {sizeof params};
    qrx_options options = {sizeof options};
    size_t packed_size = 0;
    size_t restored_size = 0;
    params.method = 5;
    params.level = 8; /* the level that uses libdivsufsort */
    options.flags = QRX_SEAL;
    options.threads = 1;
    if (!check(qrx_compress(&params, &options, text, size, packed, sizeof packed, &packed_size),
               "qrx_compress"))
        return 0;
    if (!check(qrx_decompress(&options, packed, packed_size, restored, sizeof restored,
                              &restored_size),
               "qrx_decompress"))
        return 0;
    return restored_size == size && memcmp(restored, text, size) == 0;
}

int main(void)
{
    static char text[2000];
    size_t i;
    for (i = 0; i < sizeof text; ++i) text[i] = "quarnex"[i % 7];
    if (qrx_crc32(0, "123456789", 9) != 0xCBF43926) {
        fputs("a wrong CRC-32\n", stderr);
        return 1;
    }
    if (!round_trip(text, sizeof text)) {
        fputs("the text is not restored\n", stderr);
        return 1;
    }
    printf("libqrx %s restores what it compresses\n", qrx_version());
    return 0;
}
