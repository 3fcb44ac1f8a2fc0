#include "match/lcp_tree.h"

#include "match/lcp_intervals.h"

#include <cassert>

namespace quarnex {
namespace {

// Words of the tree under construction: a number in the low bits, other fields above it.
constexpr u32 number_bits = tree_position_bits;
constexpr u32 number_mask = (1U << number_bits) - 1;

/// Of a byte split over two words: the low 7 bits, above the number in one of them.  The top bit is
/// in the other.
constexpr u32 low_bits = 32 - number_bits;
constexpr u32 low_mask = (1U << low_bits) - 1;

constexpr u32 high_part(u32 byte)
{
    return byte >> low_bits;
}

// Bits of by_position: one by index k of the suffix array, the others by node.
constexpr u32 lcp_high_bit = 31;        // index k: top bit of lcp[k]
constexpr u32 length_high_bit = 30;     // node: top bit of its length
constexpr u32 wide_flag = 1U << 29;     // node
constexpr u32 direct_flag = 1U << 28;   // node
constexpr u32 full_key_flag = 1U << 27; // node
constexpr u32 fork_flag = 1U << 26;     // node
constexpr u32 large_flag = 1U << 25;    // node

// Flags of pending children.
constexpr u32 node_item = 1U << 25;
constexpr u32 wide_item = 1U << 26;
constexpr u32 full_key_item = 1U << 27;

/// Builds the tree bottom-up.
///
/// The children of open intervals are a stack at the start of the suffix array, in words that have
/// been read.  Until the parent of a node is known, its place holds the node's first position.
class tree_builder {
  public:
    tree_builder(suffix_arrays& arrays, const tree_options& options)
        : pending_(arrays.sa), link_(arrays.room.get()), leaf_(arrays.by_position.get()),
          size_(arrays.size), options_(options)
    {
    }

    u32 add(u32 k)
    {
        constexpr u32 ahead = suffix_prefetch_distance;
        if (k + ahead < size_) {
            const u32 position = pending_[k + ahead] & number_mask;
            __builtin_prefetch(leaf_ + position, 1);
            __builtin_prefetch(link_ + position, 1);
        }
        pending_[count_] = pending_[k] & number_mask;
        return count_++;
    }

    void close(const lcp_interval& ending, u32 next)
    {
        const u32 begin = ending.mark;
        u32 first = UINT32_MAX, id = UINT32_MAX;
        for (u32 c = begin; c < count_; ++c) {
            const u32 position = first_of(pending_[c]);
            id = std::min(id, std::max(position, first));
            first = std::min(first, position);
        }
        const u32 length = ending.length - 1;
        u32 flags = 0;
        u32 item = id | node_item;
        if (options_.wide_nodes && count_ - begin >= wide_children &&
            ending.length < max_tree_length) {
            flags |= wide_flag;
            item |= wide_item;
            ++wide_nodes_;
        }
        if (ending.length == max_tree_length) item |= full_key_item;
        const u32 members = next - ending.first;
        if (members > options_.max_members) {
            flags |= large_flag;
            large_nodes_ += members;
        }
        for (u32 c = begin; c < count_; ++c) {
            const u32 child = pending_[c];
            link(child, id);
            if ((child & (wide_item | full_key_item)) != 0)
                flags |= mark_child(child, ending.length);
        }
        link_[id] = first | (length & low_mask) << number_bits;
        leaf_[id] |= high_part(length) << length_high_bit | flags;
        count_ = begin;
        pending_[count_++] = item;
    }

    /// Links the children from `begin` on, which are in no interval, to the root.
    void top(u32 begin)
    {
        for (u32 c = begin; c < count_; ++c) {
            link(pending_[c], tree_root);
            if ((pending_[c] & wide_item) != 0) mark_child(pending_[c], 0);
        }
        count_ = begin;
    }

    u32 wide_nodes() const { return wide_nodes_; }
    /// Large nodes on the path of a position, summed over all positions.
    u64 large_nodes() const { return large_nodes_; }

  private:
    u32 first_of(u32 item) const
    {
        const u32 number = item & number_mask;
        return (item & node_item) != 0 ? link_[number] & number_mask : number;
    }

    void link(u32 item, tree_ref parent)
    {
        u32& word = (item & node_item) != 0 ? link_[item & number_mask] : leaf_[item & number_mask];
        word = (word & ~number_mask) | parent;
    }

    /// Flags a child that the search treats specially; returns flags for its parent.
    u32 mark_child(u32 item, u32 parent_length)
    {
        const u32 number = item & number_mask;
        if ((item & full_key_item) != 0) {
            if (parent_length != max_tree_length - 1) return 0;
            leaf_[number] |= full_key_flag;
            return fork_flag;
        }
        const u32 length =
            (link_[number] >> number_bits | (leaf_[number] >> length_high_bit & 1) << low_bits) + 1;
        if (length == parent_length + 1) leaf_[number] |= direct_flag;
        return 0;
    }

    u32* pending_; // the suffix array
    u32* link_;    // by node
    u32* leaf_;    // by position
    u32 size_;
    u32 count_ = 0;
    u32 wide_nodes_ = 0;
    u64 large_nodes_ = 0;
    tree_options options_;
};

/// Counts the nodes on the path of a position that aren't large, summed over all positions.
class small_node_counter {
  public:
    explicit small_node_counter(u32 max_members) : max_members_(max_members) {}

    u32 add(u32 /*k*/) { return 0; }
    void top(u32 /*mark*/) {}
    void close(const lcp_interval& ending, u32 next)
    {
        const u32 members = next - ending.first;
        if (members <= max_members_) count_ += members;
    }
    u64 count() const { return count_; }

  private:
    u32 max_members_;
    u64 count_ = 0;
};

/// `shared`, but 0 for common prefixes of less than `min_length` bytes.
template <class Shared>
auto cut_below(u32 min_length, Shared shared)
{
    return [=](u32 k) {
        const u32 length = shared(k);
        return length >= min_length ? length : 0;
    };
}

/// Reads the LCP array from its bytes.
auto plain_lcp(const u8* lcp, lcp_scale scale)
{
    return [=](u32 k) { return lcp[k] + scale.base; };
}

/// Moves the LCP array to free bits of the suffix array and of by_position, and clears the rest.
void pack_lcp(const suffix_arrays& arrays)
{
    for (u32 k = 0; k < arrays.size; ++k) {
        const u32 byte = arrays.lcp[k];
        arrays.room[k] = 0;
        arrays.sa[k] |= (byte & low_mask) << number_bits;
        arrays.by_position[k] = high_part(byte) << lcp_high_bit;
    }
}

/// Reads the LCP array from those bits.
auto packed_lcp(const suffix_arrays& arrays)
{
    const u32 *const sa = arrays.sa, *const leaf = arrays.by_position.get();
    return [=, base = arrays.scale.base](u32 k) {
        return (sa[k] >> number_bits | (leaf[k] >> lcp_high_bit) << low_bits) + base;
    };
}

/// The same by tree_scale, which stores common prefixes of one byte and of none as 0: the text
/// tells them apart.
auto lcp_from_one_byte(const block_text& text, const suffix_arrays& arrays)
{
    return [lcp = packed_lcp(arrays), sa = arrays.sa, data = text.data,
            byte = u32{text.data[arrays.sa[0] & number_mask]}](u32 k) mutable {
        const u32 length = lcp(k);
        if (length != tree_scale.base) return length;
        const u32 before = byte;
        byte = data[sa[k] & number_mask];
        return byte == before ? length : 0U;
    };
}

} // namespace

bool has_wide_interval(const suffix_arrays& arrays, u32 length)
{
    const u32 wanted = length - arrays.scale.base;
    u32 children = 1;
    for (u32 k = 1; k < arrays.size; ++k) {
        const u32 shared = arrays.lcp[k];
        children += shared == wanted ? 1 : 0;
        if (shared < wanted) children = 1;
        if (children == wide_children) return true;
    }
    return false;
}

u32 average_small_nodes(const suffix_arrays& arrays, const tree_options& options)
{
    // A quarter of the suffix array, in pieces.  Intervals across their borders are counted in part
    // or missed.
    constexpr u32 piece = 1 << 15;
    const u32 step = arrays.size < 4 * piece ? piece : 4 * piece;
    small_node_counter counter(options.max_members);
    u32 suffixes = 0;
    for (u32 from = 0; from < arrays.size; from += step) {
        const u32 count = std::min(piece, arrays.size - from);
        visit_lcp_intervals(
            count, cut_below(options.min_length, plain_lcp(arrays.lcp + from, arrays.scale)),
            counter);
        suffixes += count;
    }
    return static_cast<u32>(counter.count() / suffixes);
}

bool lcp_tree::build(const block_text& text, suffix_arrays& arrays, const tree_options& options,
                     const allocator& source)
{
    const u32 n = arrays.size;
    assert(n <= max_tree_block && arrays.sa == arrays.room.get() + n);
    pack_lcp(arrays);
    tree_builder builder(arrays, options);
    if (options.min_length > arrays.scale.base) {
        visit_lcp_intervals(n, cut_below(options.min_length, packed_lcp(arrays)), builder);
    } else {
        visit_lcp_intervals(n, lcp_from_one_byte(text, arrays), builder);
    }
    average_large_nodes_ = static_cast<u32>(builder.large_nodes() / n);
    if (builder.wide_nodes() != 0) {
        wide_ = make_array<wide_node>(source, builder.wide_nodes());
        if (!wide_) return false;
    }
    join_words(arrays);
    nodes_memory = std::move(arrays.room);
    leaves_memory = std::move(arrays.by_position);
    for (u32 pos = 0; pos < std::min(n, prefetch_padding); ++pos) start_cursor(pos);
    return true;
}

/// Joins the words of the tree into nodes, in place.  Starts at the last one, as a node takes two
/// words.
void lcp_tree::join_words(const suffix_arrays& arrays)
{
    const u32* const link = arrays.room.get();
    nodes_ = reinterpret_cast<u8*>(arrays.room.get());
    leaf_ = arrays.by_position.get();
    u32 wide = 0;
    for (u32 id = arrays.size; id-- != 0;) {
        const u32 word = link[id], flags = leaf_[id];
        leaf_[id] = flags & number_mask;
        u64 node = word >> number_bits | (flags >> length_high_bit & 1) << low_bits;
        if ((flags & full_key_flag) != 0) node |= tree_node::full_key;
        if ((flags & fork_flag) != 0) node |= tree_node::fork;
        if ((flags & large_flag) != 0) node |= tree_node::large;
        u32 around = word & number_mask;
        if ((flags & wide_flag) != 0) {
            node |= tree_node::wide;
            wide_[wide] = {around, (flags & direct_flag) != 0, 0, 0};
            around = wide++;
        }
        set_node(id, {node | u64{around} << tree_node::parent_at});
    }
    std::fill_n(leaf_ + arrays.size, prefetch_padding, tree_root);
}

} // namespace quarnex
