/* faulty.h - what faulty.cpp should export, and doesn't */
#define QRX_API

QRX_API void qrx_missing(void);
QRX_API const char* qrx_plain(void);
