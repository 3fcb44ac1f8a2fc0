#include "match/trie.h"

#include "common/equal_bytes.h"
#include "match/trie_nodes.h"

#include <cstring>

namespace quarnex {
namespace {

/// Opens a gap of `gap` bytes at `place` in what ends at `end`.
void open_gap(u8* place, const u8* end, usize gap)
{
    std::memmove(place + gap, place, static_cast<usize>(end - place));
}

/// Collects what a walk meets: nodes and leaves, their latest positions.
class record_list {
  public:
    explicit record_list(trie_records& records) : records_(records) {}

    u32 count() const { return count_; }

    /// `tagged` shares more than `length` bytes with the key.
    void add(u32 tagged, u32 length)
    {
        const u32 pos = position_of(tagged);
        if (count_ == 0 || records_[count_ - 1].pos != pos) ++count_;
        records_[count_ - 1] = {length, pos};
    }

  private:
    trie_records& records_;
    u32 count_ = 0;
};

/// What a mere insertion does with it.
struct no_records {
    void add(u32 /*tagged*/, u32 /*length*/) {}
};

} // namespace

/// Takes a step: meets the node, and has what it leads to on its way.
void trie::advance(scout& ahead) const
{
    const u32 ref = ahead.ref;
    ahead.ref = no_block;
    if (ahead.depth >= trie_depth || !nodes_.is_readable(ref)) return;
    u8* const node = nodes_.at(ref);
    u32 next;
    if (node[kind_at] == path_kind) {
        __builtin_prefetch(text_ + position_of(last_of(node)) + ahead.depth);
        ahead.depth += path_length(node);
        next = load_u32(node + path_child_at);
    } else {
        const u8* const child = find_child(node, text_[ahead.pos + ahead.depth]);
        if (child == nullptr) return nodes_.fetch_page(ref);
        ++ahead.depth;
        next = load_u32(child);
    }
    if (is_leaf(next)) {
        __builtin_prefetch(text_ + position_of(next) + ahead.depth);
    } else {
        __builtin_prefetch(nodes_.at(next));
        ahead.ref = next;
    }
}

/// Sends a scout for a later position, and lets all that are on the way take a step.
void trie::send_scouts(u32 pos)
{
    scouts_[pos % trie_scouts] = {load_u32(root_.data()), pos + trie_scouts, 0};
    for (scout& ahead : scouts_) {
        if (ahead.ref != no_block) advance(ahead);
    }
}

/// Takes a step at the node that the walk has come to.  False if the position is entered.
template <class Records>
[[gnu::always_inline]] inline bool trie::step(walk& at, Records& records)
{
    u8* const slot = at.slot;
    const u32 ref = load_u32(slot);
    if (ref == no_block) {
        start(at.tagged);
        return false;
    }
    u8* const node = nodes_.at(ref);
    const u32 last = last_of(node);
    const u32 depth = at.depth;
    if (depth != 0) records.add(last, depth - 1);
    if (depth >= at.key_len) return false;
    const u8* const key = text_ + position_of(at.tagged) + depth;
    if (node[kind_at] == path_kind) {
        const u8* const label = text_ + position_of(last) + depth;
        const u32 length = path_length(node);
        const u32 same = equal_bytes(key, label, length);
        // The end of the key may lie in the label.
        const u32 shared = std::min(same, at.key_len - depth);
        if (shared != 0) records.add(last, depth + shared - 1);
        if (same < length) {
            split_path(slot, same, depth, at.tagged);
            return false;
        }
        at.depth = depth + length;
        at.slot = node + path_child_at;
        set_last(node, at.tagged);
        if (at.depth > at.key_len) return false;
    } else {
        u8* const child = find_child(node, *key);
        if (child == nullptr) {
            add_child(slot, *key, at.tagged);
            return false;
        }
        at.depth = depth + 1;
        at.slot = child;
        set_last(node, at.tagged);
    }
    const u32 next = load_u32(at.slot);
    if (!is_leaf(next)) return true;
    records.add(next, at.depth - 1);
    if (at.depth < at.key_len) meet_leaf(at.slot, at.depth, at.key_len, at.tagged);
    return false;
}

trie::walk trie::start_walk(u32 pos)
{
    return {root_.data(), tagged_position(pos), std::min(trie_depth, size_ - pos), 0};
}

void trie::trie_insert(u32 pos, u32 count)
{
    // A walk waits for memory at most of its nodes, so several go at a time, one behind the other.
    // Wherever two go the same way the earlier position is a node ahead: it started a round
    // earlier, and is first in each.  So each finds what it would find alone, and the nodes that it
    // moves are behind all those that are ahead of it.
    std::array<walk, convoy_size> convoy;
    u32 walks = 0;
    const u32 end = pos + count;
    no_records none;
    while (pos != end || walks != 0) {
        if (pos != end && walks != convoy_size) {
            if (end - pos <= trie_scouts) send_scouts(pos);
            convoy[walks++] = start_walk(pos++);
        }
        for (u32 k = 0; k < walks;) {
            if (step(convoy[k], none)) {
                __builtin_prefetch(nodes_.at(load_u32(convoy[k].slot)));
                ++k;
            } else {
                std::copy(&convoy[k] + 1, convoy.data() + walks--, &convoy[k]);
            }
        }
    }
}

u32 trie::trie_matches(u32 pos, trie_records& records)
{
    send_scouts(pos);
    record_list found(records);
    walk at = start_walk(pos);
    while (step(at, found)) {
    }
    return found.count();
}

/// Makes the first node.
void trie::start(u32 tagged)
{
    store_u32(root_.data(), make_path(tagged, 1, tagged));
}

pool_ref trie::make_path(u32 last, u32 length, u32 child)
{
    const pool_ref made = nodes_.alloc(path_size);
    if (made == no_block) return no_block;
    u8* const node = nodes_.at(made);
    set_last(node, last);
    node[kind_at] = path_kind;
    set_path_length(node, length);
    store_u32(node + path_child_at, child);
    return made;
}

/// Makes a list_node of two entries, whose key bytes differ.
pool_ref trie::make_pair(u32 last, u8 a, u32 child_a, u8 b, u32 child_b)
{
    const pool_ref made = nodes_.alloc(list_size(2));
    if (made == no_block) return no_block;
    u8* const node = nodes_.at(made);
    set_last(node, last);
    node[kind_at] = 2;
    set_entry(list_entry(node, a < b ? 0 : 1), a, child_a);
    set_entry(list_entry(node, a < b ? 1 : 0), b, child_b);
    return made;
}

/// Parts the path in `slot` at `depth`: the key shares only its first `same` bytes.
void trie::split_path(u8* slot, u32 same, u32 depth, u32 tagged)
{
    const pool_ref path = load_u32(slot);
    u8* const node = nodes_.at(path);
    const u32 last = last_of(node);
    const u32 length = path_length(node);
    const u32 child = load_u32(node + path_child_at);
    const u32 at = depth + same;
    const u8 old_byte = text_[position_of(last) + at];
    const u8 new_byte = text_[position_of(tagged) + at];
    // What follows the byte that differs: the path's child, or the rest of the path, for which the
    // node itself serves if nothing is left in front.
    const u32 rest = length - same - 1;
    pool_ref tail = child;
    if (rest != 0) tail = same == 0 ? path : make_path(last, rest, child);
    if (tail == no_block) return;
    const pool_ref fork = make_pair(tagged, old_byte, tail, new_byte, tagged);
    if (fork == no_block) {
        if (rest != 0 && same != 0) nodes_.free(tail);
        return;
    }
    if (same == 0) {
        store_u32(slot, fork);
        if (rest != 0) {
            set_path_length(node, rest);
        } else {
            nodes_.free(path);
        }
        return;
    }
    set_last(node, tagged);
    set_path_length(node, same);
    store_u32(node + path_child_at, fork);
}

/// Adds the leaf `tagged` to the node in `slot`, which has no child for `key`.
void trie::add_child(u8* slot, u8 key, u32 tagged)
{
    u8* const node = nodes_.at(load_u32(slot));
    const u32 kind = node[kind_at];
    if (kind == full_kind) {
        store_u32(full_child(node, key), tagged); // `last` stays behind
    } else if (kind < list_most) {
        add_to_list(slot, key, tagged);
    } else if (kind == list_most) {
        make_bitmap(slot, key, tagged);
    } else if (kind < bitmap_most) {
        add_to_bitmap(slot, key, tagged);
    } else {
        make_full(slot, key, tagged);
    }
}

void trie::add_to_list(u8* slot, u8 key, u32 tagged)
{
    const pool_ref old = load_u32(slot);
    const u32 entries = nodes_.at(old)[kind_at];
    const pool_ref grown = nodes_.realloc(old, list_size(entries + 1));
    if (grown == no_block) return;
    store_u32(slot, grown);
    u8* const node = nodes_.at(grown);
    u8* const entry = find_entry(node, key);
    open_gap(entry, list_entry(node, entries), entry_size);
    set_entry(entry, key, tagged);
    node[kind_at] = static_cast<u8>(entries + 1);
    set_last(node, tagged);
}

void trie::add_to_bitmap(u8* slot, u8 key, u32 tagged)
{
    const pool_ref old = load_u32(slot);
    const u32 children = nodes_.at(old)[kind_at];
    const pool_ref grown = nodes_.realloc(old, bitmap_size(children + 1));
    if (grown == no_block) return;
    store_u32(slot, grown);
    u8* const node = nodes_.at(grown);
    u8* const child = bitmap_child(node, key);
    open_gap(child, node + bitmap_size(children), child_size);
    store_u32(child, tagged);
    mark(node, key);
    node[kind_at] = static_cast<u8>(children + 1);
    set_last(node, tagged);
}

/// Makes a bitmap_node of the list_node in `slot`, which has all the entries it can have.
void trie::make_bitmap(u8* slot, u8 key, u32 tagged)
{
    const pool_ref made = nodes_.alloc(bitmap_size(list_most + 1));
    if (made == no_block) return;
    const pool_ref old = load_u32(slot);
    u8* const node = nodes_.at(made);
    std::memset(node, 0, bitmap_children_at);
    node[kind_at] = list_most + 1;
    set_last(node, tagged);
    u8* const list = nodes_.at(old);
    for (u32 k = 0; k < list_most; ++k) mark(node, *list_entry(list, k));
    mark(node, key);
    store_u32(bitmap_child(node, key), tagged);
    for (u32 k = 0; k < list_most; ++k) {
        u8* const entry = list_entry(list, k);
        store_u32(bitmap_child(node, *entry), load_u32(child_of_entry(entry)));
    }
    store_u32(slot, made);
    nodes_.free(old);
}

/// Makes a full_node of the bitmap_node in `slot`, which has all the children it can have.
void trie::make_full(u8* slot, u8 key, u32 tagged)
{
    const pool_ref made = nodes_.alloc(full_size);
    if (made == no_block) return;
    const pool_ref old = load_u32(slot);
    u8* const node = nodes_.at(made);
    u8* const bitmap = nodes_.at(old);
    std::memset(node, 0, full_size);
    node[kind_at] = full_kind;
    set_last(node, tagged);
    for (u32 byte = 0; byte < 256; ++byte) {
        const auto child = static_cast<u8>(byte);
        if (!is_marked(bitmap, child)) continue;
        store_u32(full_child(node, child), load_u32(bitmap_child(bitmap, child)));
    }
    store_u32(full_child(node, key), tagged);
    store_u32(slot, made);
    nodes_.free(old);
}

/// Enters a key that comes to the leaf in `slot` with `depth` of its bytes.
void trie::meet_leaf(u8* slot, u32 depth, u32 key_len, u32 tagged)
{
    const u32 leaf = load_u32(slot);
    const u8* const old_key = text_ + position_of(leaf);
    const u8* const new_key = text_ + position_of(tagged);
    const u32 rest = key_len - depth;
    const u32 same = equal_bytes(new_key + depth, old_key + depth, rest);
    if (same == rest) return store_u32(slot, tagged); // the old position drops out
    const u32 at = depth + same;
    const pool_ref fork = make_pair(tagged, old_key[at], leaf, new_key[at], tagged);
    if (fork == no_block) return;
    if (same == 0) return store_u32(slot, fork);
    const pool_ref path = make_path(tagged, same, fork);
    if (path == no_block) return nodes_.free(fork);
    store_u32(slot, path);
}

} // namespace quarnex
