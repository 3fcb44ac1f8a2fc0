// match/parse_nodes.cpp - vector forms of relaxing a run
#include "match/parse_nodes.h"

#include <cstring>

namespace quarnex {
namespace {

/// A vector of elements of the arrays.  Without AVX2, compilers use two of 16 bytes.
using signed_lanes [[gnu::vector_size(4 * parse_nodes::vector_nodes)]] = i32;
using lanes [[gnu::vector_size(4 * parse_nodes::vector_nodes)]] = u32;

template <class Lanes, class Element>
[[gnu::always_inline]] inline void load(Lanes& vector, const Element* at)
{
    std::memcpy(&vector, at, sizeof vector);
}

/// Stores `value` where `taken` is all ones.
template <class Lanes, class Element>
[[gnu::always_inline]] inline void store_where(const signed_lanes& taken, const Lanes& value,
                                               Element* at)
{
    Lanes old;
    load(old, at);
    const Lanes mask = reinterpret_cast<Lanes>(taken);
    const Lanes chosen = (value & mask) | (old & ~mask);
    std::memcpy(at, &chosen, sizeof chosen);
}

/// The last vector ends at the run's end, so it can overlap the one before it.  Nodes that are
/// relaxed twice by the same edge stay as they are the second time.
[[gnu::always_inline]] inline void relax_vectors(parse_nodes& nodes, u32 start, u32 end,
                                                 const price_run& run, u32 distance)
{
    assert(run.count >= parse_nodes::vector_nodes);
    const u32 base = static_cast<u32>(nodes.cost[start]) + run.common;
    const lanes none{};
    const lanes starts = none + start, distances = none + distance;
    const u32 last = run.count - parse_nodes::vector_nodes;
    for (u32 k = 0;; k = std::min(k + parse_nodes::vector_nodes, last)) {
        lanes prices;
        load(prices, run.prices + k);
        const lanes added = prices + base;
        const signed_lanes sums = reinterpret_cast<signed_lanes>(added);
        signed_lanes costs;
        load(costs, nodes.cost.data() + end + k);
        const signed_lanes cheaper = sums < costs;
        store_where(cheaper, sums, nodes.cost.data() + end + k);
        store_where(cheaper, starts, nodes.prev.data() + end + k);
        store_where(cheaper, distances, nodes.dist.data() + end + k);
        if (k == last) return;
    }
}

} // namespace

void relax_long_portable(parse_nodes& nodes, u32 start, u32 end, const price_run& run, u32 distance)
{
    relax_vectors(nodes, start, end, run, distance);
}

QUARNEX_AVX2 void relax_long_avx2(parse_nodes& nodes, u32 start, u32 end, const price_run& run,
                                  u32 distance)
{
    relax_vectors(nodes, start, end, run, distance);
}

} // namespace quarnex
