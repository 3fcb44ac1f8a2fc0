// Runs random scenarios with random schedules (scripts/stress).
//
//     schedules [--seed N] [--runs N] [--again N]
//
// Run i uses the seed N + i and prints it if something is wrong; --again repeats each run, since
// the system adds chance of its own to a schedule.  Ends with status 1 after a fault.
#include "schedules/scenarios.h"
#include "schedules/shim.h"
#include "support/temp_dir.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace quarnex::test {
namespace {

/// Enough runs that each kind of run occurs.
constexpr u64 enough_runs = 50;

struct arguments {
    u64 seed = 1;
    u64 runs = 100;
    u64 again = 1;
};

bool parse(int argc, char** argv, arguments& parsed)
{
    for (int i = 1; i + 1 < argc; i += 2) {
        const u64 value = std::strtoull(argv[i + 1], nullptr, 10);
        if (std::strcmp(argv[i], "--seed") == 0)
            parsed.seed = value;
        else if (std::strcmp(argv[i], "--runs") == 0)
            parsed.runs = value;
        else if (std::strcmp(argv[i], "--again") == 0)
            parsed.again = value;
        else
            return false;
    }
    return argc % 2 == 1;
}

void print_counts(const arguments& parsed, const scenario_counts& counts, double seconds)
{
    std::printf("%llu runs from seed %llu in %.1f s, %llu lock points\n",
                static_cast<unsigned long long>(parsed.runs * parsed.again),
                static_cast<unsigned long long>(parsed.seed), seconds,
                static_cast<unsigned long long>(passed_points()));
    std::printf("engine: %llu runs, %llu disturbed; library: %llu runs, %llu sessions, %llu "
                "disturbed or given up\n",
                static_cast<unsigned long long>(counts.engine_runs),
                static_cast<unsigned long long>(counts.engine_failures),
                static_cast<unsigned long long>(counts.library_runs),
                static_cast<unsigned long long>(counts.sessions),
                static_cast<unsigned long long>(counts.session_failures));
}

/// True if every kind of run has occurred.
bool is_complete(const scenario_counts& counts)
{
    return counts.engine_runs != 0 && counts.engine_failures != 0 && counts.library_runs != 0 &&
           counts.sessions != 0 && counts.session_failures != 0;
}

int run(const arguments& parsed)
{
    const temp_dir kept;
    const temp_dir scratch;
    const std::string directory = scratch / "run";
    sample_set samples(kept.path());
    scenario_counts counts;
    const auto start = std::chrono::steady_clock::now();
    for (u64 i = 0; i < parsed.runs * parsed.again; ++i) {
        const u64 seed = parsed.seed + i / parsed.again;
        std::filesystem::remove_all(directory);
        std::filesystem::create_directory(directory);
        if (seed % 2 == 0)
            run_engine_scenario(seed, samples, directory, counts);
        else
            run_library_scenario(seed, samples, directory, counts);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    print_counts(parsed, counts, taken.count());
    if (passed_points() < parsed.runs) {
        std::fprintf(stderr, "the threads passed no lock points\n");
        return 1;
    }
    if (parsed.runs >= enough_runs && !is_complete(counts)) {
        std::fprintf(stderr, "the scenarios left a kind of run out\n");
        return 1;
    }
    return 0;
}

} // namespace
} // namespace quarnex::test

int main(int argc, char** argv)
{
    quarnex::test::arguments parsed;
    if (!quarnex::test::parse(argc, argv, parsed)) {
        std::fprintf(stderr, "usage: schedules [--seed N] [--runs N] [--again N]\n");
        return 2;
    }
    return quarnex::test::run(parsed);
}
