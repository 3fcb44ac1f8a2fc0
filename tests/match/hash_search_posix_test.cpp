#include "match/hash_search_fixture.h"
#include "support/scoped_limits.h"

namespace quarnex::test {
namespace {

TEST_P(each_hash_search, gives_nothing_without_memory_for_its_table)
{
    const bytes block(100);
    const short_of_memory limit;
    EXPECT_FALSE(searches<1>[GetParam()]({block.data(), 50}, {28, 0}, {}).has_value());
}

} // namespace
} // namespace quarnex::test
