// A shared library with each fault that scripts/check_exports finds.
#include <string>

inline std::string unique_text = "text";

extern "C" {

const char* qrx_plain();
const char* qrx_surplus();

const char* qrx_plain()
{
    return unique_text.c_str();
}

const char* qrx_surplus()
{
    return (unique_text += '.').c_str();
}
}
