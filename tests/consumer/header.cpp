#include "qrx.h"
