// plain/plain_trie.h - the trie of level 9 told in the simplest code
//
// The judge of the real trie: nodes hold nodes, children stand in no order, no shared code.
#pragma once

#include "support/shapes.h"

#include <optional>
#include <vector>

namespace quarnex::test {

/// A match that a search found; as a rule more bytes agree than these.
struct plain_trie_record {
    u32 len;
    u32 pos;
    bool operator==(const plain_trie_record&) const = default;
};

/// A leaf without children, a path of bytes with one child, or a branch with several ones.
struct plain_trie_node {
    u8 byte;            // that leads to it, behind a branch
    u32 last;           // the position that came here last; a path's bytes stand there
    u32 path_bytes = 0; // of a path
    std::vector<plain_trie_node> children{};
};

/// The first 256 bytes of some positions of a block.
class plain_trie {
  public:
    explicit plain_trie(const bytes& block) : block_(block) {}

    /// Positions are to be inserted in rising order.
    void insert(u32 pos);
    /// Earlier positions that start as `pos` does, by rising length.
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
