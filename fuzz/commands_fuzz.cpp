// fuzz/commands_fuzz.cpp - runs commands of qrx on any .qrx image
//
//     | control | range: first: 3, size: 3 | image |
//
// Standard output is a file in memory.  The commands are compared with each other.
#include "api_input.h"
#include "captured_text.h"
#include "image_input.h"
#include "memory_file.h"
#include "support/temp_dir.h"
#include "tool/commands.h"
#include "tool/json.h"

#include <fcntl.h>
#include <sstream>

namespace quarnex::fuzz {
namespace {

// The control byte: a command and two flags.
constexpr u8 command_mask = 7;
constexpr u8 any_size = 8; // the header's sizes aren't bounded: for commands that decode nothing
constexpr u8 as_json = 16;
constexpr u8 is_verbose = 32;

using word_list = std::vector<std::string>;

/// The result of a command.
struct outcome {
    int status = -1;
    bytes output;
    std::string messages;
};

/// State that all runs share: the source, and standard output as a file in memory.
struct command_files {
    command_files()
    {
        require(dup2(open(output.name().c_str(), O_RDWR), STDOUT_FILENO) == STDOUT_FILENO,
                "standard output can be replaced");
    }

    memory_file source;
    memory_file output;
    test::temp_dir directory;
};

command_files& shared_files()
{
    static command_files shared;
    return shared;
}

int run_command(const tool::session& run)
{
    switch (run.settings.what) {
    case tool::command::test:
        return run_decompress(run);
    case tool::command::list:
        return run_list(run);
    case tool::command::info:
        return run_info(run);
    case tool::command::cat:
        return run_cat(run);
    case tool::command::recover:
        return run_recover(run);
    case tool::command::split:
        return run_split(run);
    default:
        return run_verify(run);
    }
}

/// Runs `qrx WORDS SOURCE`.
outcome run_tool(word_list line)
{
    command_files& files = shared_files();
    files.output.fill({});
    lseek(STDOUT_FILENO, 0, SEEK_SET);
    outcome made;
    {
        const captured_text errors(stderr);
        line.insert(line.begin(), "qrx");
        line.push_back(files.source.name());
        const auto settings = tool::read_command_line(line, made.status);
        require(settings.has_value(), "the command line is valid");
        tool::console messages(settings->verbosity);
        tool::progress_line progress(false);
        made.status = run_command({*settings, messages, progress});
        tool::flush_output();
        made.messages = errors.text();
    }
    made.output = files.output.content();
    require(made.status >= tool::exit_good && made.status <= tool::exit_damaged,
            "a command ends with status 0, 1 or 2");
    require(are_messages(made.messages), "messages are lines without control characters");
    return made;
}

void check_faults(const tool::json& object)
{
    for (const tool::json& fault : object.at("faults")) {
        require(fault.at("what").is_string(), "a fault has a text");
        if (!fault.contains("block")) continue;
        require(fault.at("first").get<u64>() <= fault.at("last").get<u64>() &&
                    fault.at("last").get<u64>() <= object.at("original_size").get<u64>(),
                "a fault is in the original");
    }
}

/// Requires that the parts of a map follow each other.
void check_map(const tool::json& object)
{
    u64 block = 0;
    u64 offset = 0;
    for (const tool::json& part : object.at("map")) {
        require(part.at("first_block").get<u64>() == block && part.at("first").get<u64>() == offset,
                "the parts of a map follow each other");
        block += part.at("blocks").get<u64>();
        offset = part.at("last").get<u64>();
        require(offset >= part.at("first").get<u64>(), "a part of a map has a size");
    }
    require(block == object.at("blocks").get<u64>() &&
                offset == object.at("original_size").get<u64>(),
            "a map is complete");
}

void check_json(const outcome& made)
{
    std::istringstream lines(std::string(made.output.begin(), made.output.end()));
    usize count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const tool::json object = tool::json::parse(line, nullptr, false);
        require(object.is_object() && object.at("command").is_string() &&
                    object.at("name") == shared_files().source.name(),
                "each line is an object with the command and the name");
        if (object.contains("faults")) check_faults(object);
        if (object.contains("map")) check_map(object);
    }
    require(count == 1 || (count == 0 && made.status != tool::exit_good && !made.messages.empty()),
            "each file has one object, unless it can't be opened");
}

/// Runs the commands that decode, and compares what they deliver.
void compare(u8 command, u32 first, u32 size, const word_list& flags)
{
    const auto line = [&](word_list words) {
        words.insert(words.end(), flags.begin(), flags.end());
        return words;
    };
    const outcome tested = run_tool({"test", "-T1"});
    const outcome whole = run_tool({"cat", "-T1"});
    require(whole.status == tested.status || tested.status == tool::exit_damaged,
            "test finds what cat finds");
    if (command == 0) {
        const std::string range = std::to_string(first) + "+" + std::to_string(size);
        const outcome part = run_tool({"cat", "-T1", "--range=" + range});
        if (whole.status != tool::exit_good) return;
        require(part.status == tool::exit_good &&
                    part.output == test::slice(whole.output, first, size),
                "a range is a part of the whole");
    } else if (command == 1) {
        const std::string target = shared_files().directory / "recovered";
        const outcome saved = run_tool(line({"recover", "-f", "--no-sync", "-T1", "-o", target}));
        if (tested.status != tool::exit_good) return;
        require(saved.status == tool::exit_good && test::read_file(target) == whole.output,
                "all of a good file is recovered");
    } else if (command == 2) {
        const outcome shown = run_tool(line({"info", "--test", "-T1"}));
        require(shown.status == tested.status, "info and test find the same");
    } else {
        const outcome again = run_tool(line({"test", "-T2"}));
        require(again.status == tested.status, "threads don't change what a test finds");
    }
}

void run_any(input_bytes input)
{
    const u8 control = static_cast<u8>(input.take());
    const u32 first = input.take(3);
    const u32 size = input.take(3);
    bytes image(input.rest().begin(), input.rest().end());
    const u8 command = control & command_mask;
    const bool is_bounded = command < 4 || (control & any_size) == 0;
    bound_sizes({.original_size = is_bounded, .block_size = is_bounded}, image);
    shared_files().source.fill(image);

    word_list flags;
    if ((control & as_json) != 0) flags.emplace_back("--json");
    if ((control & is_verbose) != 0) flags.emplace_back("-v");
    if (command < 4) return compare(command, first, size, flags);
    word_list line{command % 2 == 0 ? "list" : "info"};
    line.insert(line.end(), flags.begin(), flags.end());
    const outcome made = run_tool(line);
    if ((control & as_json) != 0) check_json(made);
    require((made.status == tool::exit_good) == made.messages.empty(),
            "a fault has a message, and nothing else has one");
}

bytes seed_of(u8 control, const bytes& image)
{
    return test::joined({{control, 100, 0, 0, 1, 0, 16}, image});
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    u8 flags = 0;
    for (const std::vector<bytes>& images : {several_blocks(), damaged_files()}) {
        for (const bytes& image : images) {
            for (u8 command = 0; command < 6; ++command) {
                flags = static_cast<u8>((flags + 1) % 8);
                seeds.push_back(seed_of(static_cast<u8>(command | flags << 3), image));
            }
        }
    }
    for (u8 method = 1; method <= 5; ++method) {
        for (const u8 level : bytes{1, 8}) {
            const bytes content = test::find_shape("text").make(800, level);
            const bytes image =
                compressed(params_of(method, level, level % 3), content, level == 1);
            for (u8 command = 0; command < 6; ++command)
                seeds.push_back(seed_of(static_cast<u8>(command | as_json), image));
        }
    }
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::run_any(quarnex::fuzz::input_bytes({data, size}));
    return 0;
}
