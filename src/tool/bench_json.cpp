#include "tool/bench_json.h"

#include "tool/bench_front.h"

namespace tool {

json bench_object(const bench_plan& plan, const bench_file& file,
                  const std::vector<bench_result>& results)
{
    const std::vector<bool> on_front = front_of(results, &bench_result::compress_mb_s);
    json cells = json::array();
    for (size_t index = 0; index < results.size(); ++index) {
        const bench_result& result = results[index];
        cells.push_back({{"cell", result.cell},
                         {"method", result.cell / 10},
                         {"level", result.cell % 10},
                         {"block_mib", result.block_mib},
                         {"compressed_size", result.compressed_size},
                         {"ratio", json_ratio(result.compressed_size, result.original_size)},
                         {"compress_mb_s", result.compress_mb_s()},
                         {"decompress_mb_s", result.decompress_mb_s()},
                         {"compress_memory", result.compress_memory},
                         {"decompress_memory", result.decompress_memory},
                         {"on_front", static_cast<bool>(on_front[index])}});
    }
    return {{"command", "bench"},
            {"name", json_name(file.name)},
            {"original_size", file.content.size()},
            {"threads", plan.threads},
            {"cells", std::move(cells)}};
}

} // namespace tool
