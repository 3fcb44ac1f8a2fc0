// Every allocation of the engine fails once, in both directions and with several numbers of
// workers.
#include "pipeline/parameters.h"
#include "support/driver_runs.h"
#include "support/limited_allocator.h"

#include <functional>

namespace quarnex::test {
namespace {

struct failing_cell {
    u8 method;
    u8 level;
};

class allocation_failures : public driver_fixture {
  protected:
    using run_function = std::function<driver_run(const allocator& memory)>;

    static file_parameters parameters_of_cell(failing_cell cell)
    {
        file_parameters parameters{
            .codec = {.method = cell.method, .level = cell.level, .hash_bits = 12}, .block_mb = 1};
        settle_parameters(parameters, level_defaults());
        return parameters;
    }

    /// Runs with allocation 1 failing, then allocation 2, and so on until none fails.  Each run
    /// ends with a failure value and gives all its memory back, or succeeds as `check` says.
    void fail_each_allocation(const run_function& run, const std::function<void()>& check)
    {
        u64 call = 0;
        bool failed = true;
        while (failed) {
            limited_allocator memory;
            memory.refuse_call(++call);
            const usize descriptors = open_descriptors();
            const driver_run result = run(memory.get());
            failed = call <= memory.calls();
            ASSERT_EQ(memory.in_use(), 0U) << call;
            ASSERT_EQ(open_descriptors(), descriptors) << call;
            const bool events = !recorder.take().empty();
            if (result.first_failure == status::done) {
                ASSERT_FALSE(events) << call;
                ASSERT_NO_FATAL_FAILURE(check()) << call;
            } else {
                ASSERT_EQ(result.first_failure, status::no_memory) << call;
                ASSERT_TRUE(events) << call;
                ASSERT_TRUE(failed) << call;
            }
        }
        EXPECT_GT(call, 4U) << "names, file, input and output at least";
    }

    /// Fails each allocation of compressing and of restoring `content`.
    void check_both_directions(const bytes& content, failing_cell cell)
    {
        SCOPED_TRACE(std::to_string(cell.method) + std::to_string(cell.level));
        write_file(dir / "in", content);
        const file_parameters parameters = parameters_of_cell(cell);
        const auto pack = [&](const allocator& memory) {
            return compress(GetParam(), recorder, parameters, dir / "in", dir / "c.qrx", memory);
        };
        const auto unpack = [&](const allocator& memory) {
            return decompress(GetParam(), recorder, dir / "c.qrx", dir / "out", memory);
        };
        const auto expect_content = [&] { ASSERT_TRUE(read_file(dir / "out") == content); };
        const auto expect_round_trip = [&] {
            ASSERT_EQ(unpack(system_allocator).first_failure, status::done);
            ASSERT_NO_FATAL_FAILURE(expect_content());
        };
        ASSERT_NO_FATAL_FAILURE(fail_each_allocation(pack, expect_round_trip));
        expect_success(pack(system_allocator));
        ASSERT_NO_FATAL_FAILURE(fail_each_allocation(unpack, expect_content));
    }
};

INSTANTIATE_TEST_SUITE_P(, allocation_failures, testing::Values(0, 1, 2), workers_name);

TEST_P(allocation_failures, of_a_block_of_every_method_and_kind_of_level)
{
    const bytes content = find_shape("text").make(20000, 1);
    for (u8 method = first_method; method <= last_method; ++method) {
        for (const u8 level : bytes{0, 2, 3, 5, 8, 9})
            ASSERT_NO_FATAL_FAILURE(check_both_directions(content, {method, level}));
    }
}

TEST_P(allocation_failures, of_several_blocks)
{
    const bytes content(2 * mib + 5, 'a');
    ASSERT_NO_FATAL_FAILURE(check_both_directions(content, {1, 0}));
    ASSERT_NO_FATAL_FAILURE(check_both_directions(content, {5, 3}));
}

} // namespace
} // namespace quarnex::test
