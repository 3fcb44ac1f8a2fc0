#include "tool/json.h"

#include "tool/files.h"

namespace tool {

std::string json_line(const json& object)
{
    return object.dump(-1, ' ', true, json::error_handler_t::replace);
}

void print_json(const json& object)
{
    print_line(json_line(object));
}

std::string json_name(const path& name)
{
    return to_text(name);
}

json json_fault(const qrx_event& fault, const qrx_info& info)
{
    json object{{"what", qrx_status_text(fault.what)}};
    if (fault.offset != 0) object["file_offset"] = fault.offset;
    const byte_range range = range_of(fault, info);
    if (fault.block != QRX_NO_BLOCK) {
        object["block"] = fault.block;
        object["first"] = range.first;
        object["last"] = range.last;
    }
    return object;
}

json json_ratio(uint64_t compressed, uint64_t original)
{
    if (original == 0) return nullptr;
    return static_cast<double>(compressed) / static_cast<double>(original);
}

} // namespace tool
