// What the program says about what it can't do yet.
#include "support/program_fixture.h"

namespace quarnex::test {
namespace {

using not_built = program_fixture;

TEST_F(not_built, levels_8_and_9)
{
    put("a", random_data(10));
    for (const char* option : {"-18", "-19", "-1", "-28", "-29", "-2", "-38", "-39", "-3", "-48",
                               "-49", "-4", "-58", "-59", "-5"}) {
        const program_result result = run({option, "a", "out"});
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(matches(result.err, "[^\n]*not built yet\n")) << result.err;
        EXPECT_EQ(result.status, 1);
        EXPECT_FALSE(exists("out"));
    }
}

} // namespace
} // namespace quarnex::test
