#include "tool/bench_front.h"

#include <algorithm>

namespace tool {

std::vector<bool> front_of(const std::vector<bench_result>& results, bench_speed speed)
{
    const auto is_worse = [&](const bench_result& one, const bench_result& other) {
        const double gain = (other.*speed)() - (one.*speed)();
        return gain >= 0 && other.compressed_size <= one.compressed_size &&
               (gain > 0 || other.compressed_size < one.compressed_size);
    };
    std::vector<bool> on_front;
    on_front.reserve(results.size());
    for (const bench_result& one : results)
        on_front.push_back(
            std::none_of(results.begin(), results.end(),
                         [&](const bench_result& other) { return is_worse(one, other); }));
    return on_front;
}

std::vector<size_t> front_order(const std::vector<bench_result>& results, bench_speed speed)
{
    const std::vector<bool> on_front = front_of(results, speed);
    std::vector<size_t> order;
    for (size_t index = 0; index < results.size(); ++index)
        if (on_front[index]) order.push_back(index);
    std::sort(order.begin(), order.end(), [&](size_t one, size_t other) {
        return (results[one].*speed)() > (results[other].*speed)();
    });
    return order;
}

} // namespace tool
