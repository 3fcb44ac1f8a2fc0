// fuzz/replay_main.cpp - runs a fuzz target without libFuzzer
//
//     X_replay run COUNT [ARCHIVE]  calls the target with all seeds, the inputs of an archive and
//                                   COUNT mutated ones, the same in each run; an input that ends
//                                   the process is saved to a file
//     X_replay file FILE...         calls the target with the content of each file; of a directory,
//                                   with that of each file in it
//     X_replay seeds DIR            writes the seeds for libFuzzer, one file each
//     X_replay pack ARCHIVE SIZE DIR
//                                   writes an archive of the files in a directory, the small ones
//                                   first, of at most SIZE bytes
//     X_replay unpack ARCHIVE DIR   writes the inputs of an archive, one file each
//
// An archive is the inputs one after another, each preceded by its length (4, little-endian).
#include "common/bytes.h"
#include "fuzz_target.h"
#include "support/temp_dir.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>

namespace quarnex::fuzz {
namespace {

using test::random_source;

usize random_index(const bytes& input, random_source& random)
{
    return random.below(static_cast<u32>(input.size()));
}

void mutate_once(bytes& input, random_source& random)
{
    const usize at = random_index(input, random);
    const auto position = input.begin() + static_cast<std::ptrdiff_t>(at);
    const usize count = std::min<usize>(1 + random.below(16), input.size() - at);
    switch (random.below(6)) {
    case 0:
        *position ^= static_cast<u8>(1U << random.below(8));
        break;
    case 1:
        *position = static_cast<u8>(random.next());
        break;
    case 2:
        std::fill_n(position, count, random.below(2) == 0 ? 0x00 : 0xFF);
        break;
    case 3:
        input.insert(position, random.below(16) + 1, static_cast<u8>(random.next()));
        break;
    case 4:
        input.erase(position, position + static_cast<std::ptrdiff_t>(count));
        break;
    default:
        input.resize(at);
    }
}

/// Returns input `number`: a seed, or after the last seed a mutated one.
bytes make_input(const std::vector<bytes>& seeds, u32 number)
{
    if (number < seeds.size()) return seeds[number];
    random_source random(number);
    bytes input = seeds[random.below(static_cast<u32>(seeds.size()))];
    for (u32 n = 1 + random.below(4); n != 0 && !input.empty(); --n) mutate_once(input, random);
    return input;
}

void call_target(const bytes& input)
{
    const bytes copy(input); // without spare capacity
    LLVMFuzzerTestOneInput(copy.data(), copy.size());
}

/// Returns a number in shared memory, which outlives a forked process.
u32* make_shared_number()
{
    void* const page =
        mmap(nullptr, sizeof(u32), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(page != MAP_FAILED, "mmap() succeeds");
    return static_cast<u32*>(page);
}

std::vector<bytes> read_archive(const std::string& name)
{
    const bytes all = test::read_file(name);
    require(!all.empty(), "an archive can be read");
    std::vector<bytes> inputs;
    for (usize at = 0; at != all.size();) {
        require(all.size() - at >= sizeof(u32), "an archive ends with an input");
        const u32 size = load_u32(&all[at]);
        at += sizeof size;
        require(all.size() - at >= size, "an archive has all bytes of its inputs");
        const auto begin = all.begin() + static_cast<std::ptrdiff_t>(at);
        inputs.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(size));
        at += size;
    }
    return inputs;
}

/// Returns the contents of the regular files in a directory, from small to large.
std::vector<bytes> read_directory(const std::string& name)
{
    std::vector<bytes> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(name))
        if (entry.is_regular_file()) inputs.push_back(test::read_file(entry.path().string()));
    std::sort(inputs.begin(), inputs.end(), [](const bytes& a, const bytes& b) {
        return a.size() != b.size() ? a.size() < b.size() : a < b;
    });
    return inputs;
}

int pack(const std::string& archive, usize limit, const std::string& directory)
{
    bytes all;
    u32 count = 0;
    for (const bytes& input : read_directory(directory)) {
        if (all.size() + sizeof(u32) + input.size() > limit) break;
        all.resize(all.size() + sizeof(u32));
        store_u32(&all[all.size() - sizeof(u32)], static_cast<u32>(input.size()));
        all.insert(all.end(), input.begin(), input.end());
        ++count;
    }
    test::write_file(archive, all);
    std::printf("%u inputs\n", count);
    return 0;
}

int replay(const std::string& name)
{
    if (std::filesystem::is_directory(name))
        for (const bytes& input : read_directory(name)) call_target(input);
    else
        call_target(test::read_file(name));
    return 0;
}

int run(const std::string& tool, u32 count, const std::vector<bytes>& found)
{
    std::vector<bytes> seeds = make_seeds();
    seeds.insert(seeds.end(), found.begin(), found.end());
    const auto all = static_cast<u32>(seeds.size()) + count;
    u32* const number = make_shared_number();
    const pid_t child = fork();
    require(child >= 0, "fork() succeeds");
    if (child == 0) {
        for (*number = 0; *number < all; ++*number) call_target(make_input(seeds, *number));
        std::exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status == 0) {
        std::printf("%u inputs\n", all);
        return 0;
    }
    if (*number == all) {
        std::fprintf(stderr, "failed at exit, after the last input\n");
        return 1;
    }
    const std::string file = tool + "-" + std::to_string(*number) + ".input";
    test::write_file(file, make_input(seeds, *number));
    std::fprintf(stderr, "failed; run '%s file %s' to reproduce it\n", tool.c_str(), file.c_str());
    return 1;
}

int write_inputs(const std::vector<bytes>& inputs, const std::string& prefix)
{
    u32 number = 0;
    std::filesystem::create_directories(std::filesystem::path(prefix).parent_path());
    for (const bytes& input : inputs) test::write_file(prefix + std::to_string(number++), input);
    return 0;
}

} // namespace
} // namespace quarnex::fuzz

int main(int argc, char** argv)
{
    const std::vector<std::string> arguments(argv, argv + argc);
    const std::string mode = argc > 2 ? arguments[1] : "";
    using namespace quarnex::fuzz;
    if (mode == "run") {
        return run(arguments[0], static_cast<unsigned>(std::stoul(arguments[2])),
                   argc > 3 ? read_archive(arguments[3]) : std::vector<bytes>());
    }
    if (mode == "seeds") return write_inputs(make_seeds(), arguments[2] + "/seed-");
    if (mode == "unpack" && argc > 3)
        return write_inputs(read_archive(arguments[2]), arguments[3] + "/kept-");
    if (mode == "pack" && argc > 4)
        return pack(arguments[2], std::stoul(arguments[3]), arguments[4]);
    if (mode == "file") {
        for (int i = 2; i < argc; ++i) replay(argv[i]);
        return 0;
    }
    std::fprintf(
        stderr,
        "usage: %s run COUNT [ARCHIVE] | file FILE... | seeds DIR | pack ARCHIVE SIZE DIR | "
        "unpack ARCHIVE DIR\n",
        argv[0]);
    return 1;
}
