// match/hash_search_fixture.h - the searches of levels 0, 1 and 2
#pragma once

#include "match/hash_search.h"
#include "support/token_recorder.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// By level.
template <u32 FirstPos>
inline constexpr recorded_search<FirstPos> searches[]{
    search_greedy<inserts::nothing, token_recorder<FirstPos>>,
    search_greedy<inserts::inside_match, token_recorder<FirstPos>>,
    search_lazy<token_recorder<FirstPos>>,
};

/// The parameter is the level.
class each_hash_search : public testing::TestWithParam<u32> {};

} // namespace quarnex::test
