#include "match/trie.h"

#include "common/equal_bytes.h"
#include "match/trie_nodes.h"

#include <cassert>
#include <cstring>

namespace quarnex {
namespace {

// Every node fits into a pool block, and vector loads past a list stay in readable memory.
static_assert(full_size <= pool::large_limit && bitmap_size(max_bitmap_children) <= full_size);
static_assert(list_overread <= pool::page_size);
// A prefetch cursor can take stale memory for a node of any kind, with any prefix count.  It reads
// no farther than is_readable() has checked.
static_assert(list_size(max_list_children) + list_overread <= pool::large_limit);
static_assert(bitmap_size(UINT8_MAX + bitmap_word_bits) <= pool::large_limit);

/// Opens a gap of `gap` bytes at `start` in the bytes that end at `end`.
void open_gap(u8* start, const u8* end, usize gap)
{
    std::memmove(start + gap, start, static_cast<usize>(end - start));
}

/// Collects the latest positions of the nodes and leaves that a descent visits.
class record_list {
  public:
    explicit record_list(trie_records& records) : records_(records) {}

    u32 count() const { return count_; }

    /// `tagged` shares more than `length` bytes with the key.  Replaces the last record if that has
    /// the same position.
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

/// Ignores them, for an insertion without a search.
struct no_records {
    void add(u32 /*tagged*/, u32 /*length*/) {}
};

} // namespace

/// Visits the next node of a cursor and prefetches what that leads to: a node, a label or a leaf's
/// text.
void trie::advance(prefetch_cursor& cursor) const
{
    const u32 ref = cursor.ref;
    cursor.ref = no_block;
    if (cursor.depth >= trie_depth || !nodes_.is_readable(ref)) return;
    u8* const node = nodes_.at(ref);
    u32 next;
    if (node[kind_at] == path_kind) {
        __builtin_prefetch(text_ + position_of(last_of(node)) + cursor.depth);
        cursor.depth += path_length(node);
        next = load_u32(node + path_child_at);
    } else {
        const u8* const child = find_child(node, text_[cursor.pos + cursor.depth]);
        if (child == nullptr) return nodes_.prefetch_page(ref);
        ++cursor.depth;
        next = load_u32(child);
    }
    if (is_leaf(next)) {
        __builtin_prefetch(text_ + position_of(next) + cursor.depth);
    } else {
        __builtin_prefetch(nodes_.at(next));
        cursor.ref = next;
    }
}

/// Starts the cursor of a later position, and advances all cursors by one node.
void trie::prefetch_ahead(u32 pos)
{
    cursors_[pos % trie_prefetch_distance] = {load_u32(root_.data()), pos + trie_prefetch_distance,
                                              0};
    for (prefetch_cursor& cursor : cursors_) {
        if (cursor.ref != no_block) advance(cursor);
    }
}

/// Passes one node of a descent, or inserts the key there.  Returns false when the descent is done.
template <class Records>
[[gnu::always_inline]] inline bool trie::step(descent& at, Records& records)
{
    u8* const link = at.link;
    const u32 ref = load_u32(link);
    if (ref == no_block) {
        make_root(at.tagged);
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
        // The label may be longer than the rest of the key.
        const u32 shared = std::min(same, at.key_len - depth);
        if (shared != 0) records.add(last, depth + shared - 1);
        if (same < length) {
            split_path(link, same, depth, at.tagged);
            return false;
        }
        at.depth = depth + length;
        at.link = node + path_child_at;
        set_last(node, at.tagged);
        if (at.depth > at.key_len) return false;
    } else {
        u8* const child = find_child(node, *key);
        if (child == nullptr) {
            add_child(link, *key, at.tagged);
            return false;
        }
        at.depth = depth + 1;
        at.link = child;
        set_last(node, at.tagged);
    }
    const u32 next = load_u32(at.link);
    if (!is_leaf(next)) return true;
    records.add(next, at.depth - 1);
    if (at.depth < at.key_len) insert_at_leaf(at.link, at.depth, at.key_len, at.tagged);
    return false;
}

trie::descent trie::start_descent(u32 pos)
{
    return {root_.data(), tagged_position(pos), std::min(trie_depth, size_ - pos), 0};
}

void trie::trie_insert(u32 pos, u32 count)
{
    // Most nodes are cache misses, so several descents take turns: each prefetches its next node
    // and waits while the others step.  The result is that of separate insertions: where two keys
    // share a path, the earlier position is at least one node deeper, as it started a round earlier
    // and steps first in each round.  A descent moves only the node it steps at; the links of
    // earlier positions are in deeper nodes by then.
    assert(pos <= size_ && count <= size_ - pos);
    std::array<descent, batch_size> batch;
    u32 active = 0;
    const u32 end = pos + count;
    no_records none;
    while (pos != end || active != 0) {
        if (pos != end && active != batch_size) {
            if (end - pos <= trie_prefetch_distance) prefetch_ahead(pos);
            batch[active++] = start_descent(pos++);
        }
        for (u32 k = 0; k < active;) {
            if (step(batch[k], none)) {
                __builtin_prefetch(nodes_.at(load_u32(batch[k].link)));
                ++k;
            } else {
                std::copy(&batch[k] + 1, batch.data() + active--, &batch[k]);
            }
        }
    }
}

u32 trie::trie_matches(u32 pos, trie_records& records)
{
    assert(pos < size_);
    prefetch_ahead(pos);
    record_list found(records);
    descent at = start_descent(pos);
    while (step(at, found)) {
    }
    return found.count();
}

/// Makes the first node: a path of one byte.
void trie::make_root(u32 tagged)
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

/// Makes a list node of two entries with different key bytes.
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

/// Splits the path node in `link`, at `depth`, of which the key shares only the first `same` bytes.
void trie::split_path(u8* link, u32 same, u32 depth, u32 tagged)
{
    const pool_ref path = load_u32(link);
    u8* const node = nodes_.at(path);
    const u32 last = last_of(node);
    const u32 length = path_length(node);
    const u32 child = load_u32(node + path_child_at);
    const u32 at = depth + same;
    const u8 old_byte = text_[position_of(last) + at];
    const u8 new_byte = text_[position_of(tagged) + at];
    // The child for the old byte: the path's child, or the rest of the path, which reuses the node
    // if no bytes before the fork need it.
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
        store_u32(link, fork);
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

/// Adds the leaf `tagged` to the node in `link`, which has no child for `key`.
void trie::add_child(u8* link, u8 key, u32 tagged)
{
    u8* const node = nodes_.at(load_u32(link));
    const u32 kind = node[kind_at];
    if (kind == full_kind) {
        store_u32(full_child(node, key), tagged); // leaves `last` unchanged
    } else if (kind < max_list_children) {
        add_to_list(link, key, tagged);
    } else if (kind == max_list_children) {
        make_bitmap(link, key, tagged);
    } else if (kind < max_bitmap_children) {
        add_to_bitmap(link, key, tagged);
    } else {
        make_full(link, key, tagged);
    }
}

void trie::add_to_list(u8* link, u8 key, u32 tagged)
{
    const pool_ref old = load_u32(link);
    const u32 entries = nodes_.at(old)[kind_at];
    const pool_ref grown = nodes_.realloc(old, list_size(entries + 1));
    if (grown == no_block) return;
    store_u32(link, grown);
    u8* const node = nodes_.at(grown);
    u8* const entry = find_entry(node, key);
    open_gap(entry, list_entry(node, entries), entry_size);
    set_entry(entry, key, tagged);
    node[kind_at] = static_cast<u8>(entries + 1);
    set_last(node, tagged);
}

void trie::add_to_bitmap(u8* link, u8 key, u32 tagged)
{
    const pool_ref old = load_u32(link);
    const u32 children = nodes_.at(old)[kind_at];
    const pool_ref grown = nodes_.realloc(old, bitmap_size(children + 1));
    if (grown == no_block) return;
    store_u32(link, grown);
    u8* const node = nodes_.at(grown);
    u8* const child = bitmap_child(node, key);
    open_gap(child, node + bitmap_size(children), child_size);
    store_u32(child, tagged);
    mark(node, key);
    node[kind_at] = static_cast<u8>(children + 1);
    set_last(node, tagged);
}

/// Replaces the list node in `link`, which is full, by a bitmap node.
void trie::make_bitmap(u8* link, u8 key, u32 tagged)
{
    const pool_ref made = nodes_.alloc(bitmap_size(max_list_children + 1));
    if (made == no_block) return;
    const pool_ref old = load_u32(link);
    u8* const node = nodes_.at(made);
    std::memset(node, 0, bitmap_children_at);
    node[kind_at] = max_list_children + 1;
    set_last(node, tagged);
    u8* const list = nodes_.at(old);
    for (u32 k = 0; k < max_list_children; ++k) mark(node, *list_entry(list, k));
    mark(node, key);
    store_u32(bitmap_child(node, key), tagged);
    for (u32 k = 0; k < max_list_children; ++k) {
        u8* const entry = list_entry(list, k);
        store_u32(bitmap_child(node, *entry), load_u32(child_of_entry(entry)));
    }
    store_u32(link, made);
    nodes_.free(old);
}

/// Replaces the bitmap node in `link`, which is full, by a full node.
void trie::make_full(u8* link, u8 key, u32 tagged)
{
    const pool_ref made = nodes_.alloc(full_size);
    if (made == no_block) return;
    const pool_ref old = load_u32(link);
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
    store_u32(link, made);
    nodes_.free(old);
}

/// Inserts a key that reaches the leaf in `link` after `depth` of its bytes: replaces the leaf if
/// the rest agrees, or forks.
void trie::insert_at_leaf(u8* link, u32 depth, u32 key_len, u32 tagged)
{
    const u32 leaf = load_u32(link);
    const u8* const old_key = text_ + position_of(leaf);
    const u8* const new_key = text_ + position_of(tagged);
    const u32 rest = key_len - depth;
    const u32 same = equal_bytes(new_key + depth, old_key + depth, rest);
    if (same == rest) return store_u32(link, tagged);
    const u32 at = depth + same;
    const pool_ref fork = make_pair(tagged, old_key[at], leaf, new_key[at], tagged);
    if (fork == no_block) return;
    if (same == 0) return store_u32(link, fork);
    const pool_ref path = make_path(tagged, same, fork);
    if (path == no_block) return nodes_.free(fork);
    store_u32(link, path);
}

} // namespace quarnex
