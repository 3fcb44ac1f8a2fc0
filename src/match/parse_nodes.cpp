// match/parse_nodes.cpp - relaxes a run with vector instructions
#include "match/parse_nodes.h"

#include <cstring>

namespace quarnex {
namespace {

/// Vectors of SSE2 and of most other processors.  (GCC 12 turns longer ones into scalar code.)
struct vectors_of_4 {
    using of_signed [[gnu::vector_size(16)]] = i32;
    using of_unsigned [[gnu::vector_size(16)]] = u32;
};

/// Vectors of AVX2.
struct vectors_of_8 {
    using of_signed [[gnu::vector_size(32)]] = i32;
    using of_unsigned [[gnu::vector_size(32)]] = u32;
};

template <class Vector, class Element>
[[gnu::always_inline]] inline void load(Vector& vector, const Element* at)
{
    std::memcpy(&vector, at, sizeof vector);
}

/// Stores `value` where `taken` is all ones.
template <class Mask, class Vector, class Element>
[[gnu::always_inline]] inline void store_where(const Mask& taken, const Vector& value, Element* at)
{
    Vector old;
    load(old, at);
    const auto mask = reinterpret_cast<Vector>(taken);
    const Vector chosen = (value & mask) | (old & ~mask);
    std::memcpy(at, &chosen, sizeof chosen);
}

/// The last vector ends at the run's end, so it can overlap the one before it.  Relaxing a node a
/// second time by the same edge has no effect.
template <class Vectors>
[[gnu::always_inline]] inline void relax_vectors(parse_nodes& nodes, u32 start, u32 end,
                                                 const price_run& run, u32 distance)
{
    using of_signed = typename Vectors::of_signed;
    using of_unsigned = typename Vectors::of_unsigned;
    constexpr u32 step = sizeof(of_signed) / sizeof(u32);
    static_assert(step <= parse_nodes::vector_nodes);
    assert(run.count >= parse_nodes::vector_nodes && end + run.count <= parse_nodes::max_count);
    const u32 base = static_cast<u32>(nodes.cost[start]) + run.common;
    const of_unsigned starts = of_unsigned{} + start, distances = of_unsigned{} + distance;
    const u32 last = run.count - step;
    for (u32 k = 0;; k = std::min(k + step, last)) {
        of_unsigned prices;
        load(prices, run.prices + k);
        prices += base;
        const auto sums = reinterpret_cast<of_signed>(prices);
        of_signed costs;
        load(costs, nodes.cost.data() + end + k);
        const auto cheaper = sums < costs;
        store_where(cheaper, sums, nodes.cost.data() + end + k);
        store_where(cheaper, starts, nodes.prev.data() + end + k);
        store_where(cheaper, distances, nodes.dist.data() + end + k);
        if (k == last) return;
    }
}

} // namespace

void relax_long_portable(parse_nodes& nodes, u32 start, u32 end, const price_run& run, u32 distance)
{
    relax_vectors<vectors_of_4>(nodes, start, end, run, distance);
}

QUARNEX_AVX2 void relax_long_avx2(parse_nodes& nodes, u32 start, u32 end, const price_run& run,
                                  u32 distance)
{
    relax_vectors<vectors_of_8>(nodes, start, end, run, distance);
}

} // namespace quarnex
