// What the program says about what it can't do yet.
#include "support/program_fixture.h"

namespace quarnex::test {
namespace {

class not_built : public program_fixture {
  protected:
    static void expect_one_line(const program_result& result)
    {
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(matches(result.err, "[^\n]*not built yet\n")) << result.err;
        EXPECT_EQ(result.status, 1);
    }

    /// Expects that the file ends the plain loop and the walk.
    void expect_no_output(const qrx_file& file)
    {
        put("a.qrx", build_qrx(file));
        for (const char* threads : {"-p0", "-p2"}) {
            expect_one_line(run({"-d", threads, "a.qrx", "a.qrx", "out"}));
            expect_one_line(run({"-d", threads, "-r", "a.qrx", "a.qrx", "out"}));
            EXPECT_FALSE(exists("out/a"));
        }
    }
};

TEST_F(not_built, methods_and_levels)
{
    put("a", random_data(10));
    for (const char* option : {"-18", "-19", "-1", "-20", "-27", "-2", "-38", "-39", "-3", "-48",
                               "-49", "-4", "-58", "-59", "-5"}) {
        expect_one_line(run({option, "a", "out"}));
        EXPECT_FALSE(exists("out"));
    }
}

TEST_F(not_built, files_of_method_2)
{
    qrx_file file{{}, {{0, bytes(50)}}};
    file.header.original_size = 100;
    file.header.method = 2;
    expect_no_output(file);
}

} // namespace
} // namespace quarnex::test
