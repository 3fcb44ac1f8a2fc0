#include "tool/bench_plot.h"
namespace tool {
std::string bench_svg(const std::string& title, const std::vector<bench_result>&)
{
    return title;
}
} // namespace tool
