#include "plain/plain_trie.h"

#include <algorithm>
#include <utility>

namespace quarnex::test {
namespace {

constexpr usize max_key = 256;
constexpr usize full_branch = 247;

plain_trie_node path(u8 byte, u32 last, u32 size, plain_trie_node child)
{
    plain_trie_node node{byte, last, size};
    node.children.push_back(std::move(child));
    return node;
}

template <class Node>
Node* find_child(Node& branch, u8 byte)
{
    for (auto& child : branch.children)
        if (child.byte == byte) return &child;
    return nullptr;
}

/// Adds a record; replaces the previous one if that has the same position.
void add(std::vector<plain_trie_record>& records, u32 len, u32 pos)
{
    if (!records.empty() && records.back().pos == pos)
        records.back().len = len;
    else
        records.push_back({len, pos});
}

} // namespace

u32 plain_trie::key_size(u32 pos) const
{
    return static_cast<u32>(std::min(max_key, block_.size() - pos));
}

/// The number of bytes, up to `limit`, in which two positions agree from `depth` on.
u32 plain_trie::same_bytes(u32 a, u32 b, u32 depth, u32 limit) const
{
    u32 same = 0;
    while (same < limit && byte_at(usize{a} + depth + same) == byte_at(usize{b} + depth + same))
        ++same;
    return same;
}

/// Replaces a leaf or path, of which `same` bytes agree with `pos`, by a path to a branch.  The
/// branch has `rest`, the remainder after the byte that differs, and a leaf for `pos`.
void plain_trie::fork(plain_trie_node& at, plain_trie_node rest, u32 same, u32 depth, u32 pos) const
{
    rest.byte = byte_at(usize{at.last} + depth + same);
    plain_trie_node branch{at.byte, pos};
    branch.children.push_back(std::move(rest));
    branch.children.push_back({byte_at(usize{pos} + depth + same), pos});
    at = same == 0 ? std::move(branch) : path(at.byte, pos, same, std::move(branch));
}

void plain_trie::fork_leaf(plain_trie_node& at, u32 depth, u32 pos) const
{
    const u32 left = key_size(pos) - depth;
    const u32 same = same_bytes(pos, at.last, depth, left);
    if (same == left)
        at.last = pos;
    else
        fork(at, {0, at.last}, same, depth, pos);
}

/// The child of a path; null, after forking the path, if not all of its bytes agree with `pos`.
plain_trie_node* plain_trie::pass_path(plain_trie_node& at, u32 depth, u32 pos) const
{
    const u32 same = same_bytes(pos, at.last, depth, at.path_bytes);
    const u32 left = at.path_bytes - same;
    plain_trie_node& child = at.children.front();
    if (left == 0) {
        at.last = pos;
        return &child;
    }
    fork(at, left == 1 ? std::move(child) : path(0, at.last, left - 1, std::move(child)), same,
         depth, pos);
    return nullptr;
}

/// The child of a branch for `pos`; null, after adding a leaf, if there was none.
plain_trie_node* plain_trie::pass_branch(plain_trie_node& at, u32 depth, u32 pos) const
{
    const u8 byte = byte_at(usize{pos} + depth);
    plain_trie_node* const child = find_child(at, byte);
    // A full branch gets a new child without an update of `last`.
    if (child != nullptr || at.children.size() < full_branch) at.last = pos;
    if (child == nullptr) at.children.push_back({byte, pos});
    return child;
}

void plain_trie::insert(u32 pos)
{
    if (!root_) {
        root_ = path(0, pos, 1, {0, pos});
        return;
    }
    const u32 size = key_size(pos);
    plain_trie_node* at = &*root_;
    // A leaf at the end of the key stays unchanged.
    for (u32 depth = 0; at != nullptr && depth < size;) {
        if (at->children.empty()) return fork_leaf(*at, depth, pos);
        const u32 passed = std::max(at->path_bytes, 1U);
        at = at->path_bytes > 0 ? pass_path(*at, depth, pos) : pass_branch(*at, depth, pos);
        depth += passed;
    }
}

std::vector<plain_trie_record> plain_trie::matches(u32 pos) const
{
    std::vector<plain_trie_record> records;
    const u32 size = key_size(pos);
    const plain_trie_node* at = root_ ? &*root_ : nullptr;
    for (u32 depth = 0; at != nullptr && depth < size && !at->children.empty();) {
        if (at->path_bytes > 0) {
            const u32 limit = std::min(at->path_bytes, size - depth);
            const u32 same = same_bytes(pos, at->last, depth, limit);
            if (same == 0) break;
            depth += same;
            add(records, depth - 1, at->last);
            if (same < at->path_bytes) break;
            at = &at->children.front();
            add(records, depth - 1, at->last);
        } else {
            at = find_child(*at, byte_at(usize{pos} + depth));
            if (at != nullptr) add(records, depth++, at->last);
        }
    }
    return records;
}

} // namespace quarnex::test
