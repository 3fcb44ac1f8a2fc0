// plain/plain_trie.h - reference implementation of the trie of level 9
//
// Written for clarity and sharing no code with the real trie, whose records the tests compare with
// these: nodes contain nodes, children are unsorted.
#pragma once

#include "support/shapes.h"

#include <optional>
#include <vector>

namespace quarnex::test {

/// A match found by a search; usually more than `len` bytes agree.
struct plain_trie_record {
    u32 len;
    u32 pos;
    bool operator==(const plain_trie_record&) const = default;
};

/// A leaf (no children), a path of bytes with one child, or a branch with several.
struct plain_trie_node {
    u8 byte;            // key byte, for a child of a branch
    u32 last;           // the latest position inserted through the node; has the path's bytes
    u32 path_bytes = 0; // length of a path
    std::vector<plain_trie_node> children{};
};

/// The first 256 bytes at positions of a block.
class plain_trie {
  public:
    explicit plain_trie(const bytes& block) : block_(block) {}

    /// Positions are inserted in ascending order.
    void insert(u32 pos);
    /// Positions in the trie that share bytes with `pos`, by ascending length.
    std::vector<plain_trie_record> matches(u32 pos) const;

  private:
    u32 key_size(u32 pos) const;
    u8 byte_at(usize pos) const { return pos < block_.size() ? block_[pos] : u8{0}; }
    u32 same_bytes(u32 a, u32 b, u32 depth, u32 limit) const;
    void fork(plain_trie_node& at, plain_trie_node rest, u32 same, u32 depth, u32 pos) const;
    void fork_leaf(plain_trie_node& at, u32 depth, u32 pos) const;
    plain_trie_node* pass_path(plain_trie_node& at, u32 depth, u32 pos) const;
    plain_trie_node* pass_branch(plain_trie_node& at, u32 depth, u32 pos) const;

    const bytes& block_;
    std::optional<plain_trie_node> root_{};
};

} // namespace quarnex::test
