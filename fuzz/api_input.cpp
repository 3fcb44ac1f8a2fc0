#include "api_input.h"

namespace quarnex::fuzz {

qrx_params take_params(input_bytes& input)
{
    constexpr u32 hash_bits_choices = 9; // larger tables would only be slower
    auto params = sized<qrx_params>();
    params.method = 1 + input.take() % 5;
    params.level = input.take() % 10;
    params.context_bits = input.take() % 9;
    params.hash_bits = 10 + input.take() % hash_bits_choices;
    params.chain_bits = 1 + input.take() % 8;
    params.filter = input.take() % 3;
    params.block_mib = 1;
    require(qrx_params_settle(&params) == QRX_OK, "parameters in range are valid");
    return params;
}

bytes params_input(u8 method, u8 level, u8 filter)
{
    return {static_cast<u8>(method - 1), level, 3, 2, 1, filter};
}

qrx_params params_of(u8 method, u8 level, u8 filter)
{
    const bytes selection = params_input(method, level, filter);
    input_bytes input(selection);
    return take_params(input);
}

bytes take_content(const input_bytes& input, const qrx_params& params, u8 control)
{
    constexpr u8 max_repeated_level = 3;
    constexpr usize sizes[]{0, mib + 5, 2 * mib, 2 * mib + 100};
    const bool is_fast = params.level <= max_repeated_level;
    return repeated(input.rest(), is_fast ? sizes[control & repeats_mask] : 0);
}

bytes compressed(const qrx_params& params, const bytes& content, bool is_sealed)
{
    auto options = sized<qrx_options>();
    options.flags = is_sealed ? QRX_SEAL : 0;
    bytes image(qrx_compress_bound(&params, content.size()));
    usize size = 0;
    require(qrx_compress(&params, &options, content.data(), content.size(), image.data(),
                         image.size(), &size) == QRX_OK,
            "a buffer can be compressed");
    image.resize(size);
    return image;
}

reader_ptr open_image(const bytes& image, u32 flags)
{
    auto options = sized<qrx_options>();
    options.flags = flags;
    qrx_reader* reader = nullptr;
    require(qrx_reader_open_memory(&reader, image.data(), image.size(), &options) == QRX_OK,
            "an image opens");
    return reader_ptr(reader);
}

qrx_info info_of(const qrx_reader& reader)
{
    auto info = sized<qrx_info>();
    require(qrx_reader_info(&reader, &info) == QRX_OK, "a reader has information");
    return info;
}

} // namespace quarnex::fuzz
