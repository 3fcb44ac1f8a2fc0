// fuzz/commands_fuzz.cpp - runs commands of qrx on any .qrx image
//
//     | control | first: 3 | size: 3 | image |
//
// The two numbers are a range of the original; split and verify use them otherwise.  Standard
// output is a file in memory.  The commands are compared with each other, and their JSON is parsed.
#include "api_input.h"
#include "captured_text.h"
#include "command_json.h"
#include "image_input.h"
#include "memory_file.h"
#include "support/temp_dir.h"
#include "tool/commands.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>

namespace quarnex::fuzz {
namespace {

// The control byte: a command and flags.
constexpr u8 command_mask = 7;
enum choice : u8 { cat_range, recover, info_test, test_threads, list, info, split_join, verify };
constexpr u8 command_count = 8;
constexpr u8 any_size = 8; // the header's sizes aren't bounded: for commands that decode nothing
constexpr u8 as_json = 16;
constexpr u8 is_verbose = 32;
constexpr u8 with_itself = 64; // joins the image with itself, instead of its pieces

constexpr usize block_bytes = usize{1} << 20; // of an image with bounded sizes
constexpr usize seal_bytes = 4;

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
    memory_file original;
    memory_file output;
    test::temp_dir directory;
};

command_files& shared_files()
{
    static command_files shared;
    return shared;
}

/// Returns the files of the shared directory in the order of their names.
word_list made_files()
{
    word_list names;
    for (const auto& entry : std::filesystem::directory_iterator(shared_files().directory.path()))
        names.push_back(entry.path().string());
    std::sort(names.begin(), names.end());
    return names;
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
    case tool::command::join:
        return run_join(run);
    default:
        return run_verify(run);
    }
}

/// Runs `qrx LINE NAMES`.
outcome run_tool(word_list line, const word_list& names)
{
    command_files& files = shared_files();
    files.output.fill({});
    lseek(STDOUT_FILENO, 0, SEEK_SET);
    outcome made;
    const std::string command = line[0];
    line.insert(line.begin(), "qrx");
    line.insert(line.end(), names.begin(), names.end());
    const auto settings = tool::read_command_line(line, made.status);
    require(settings.has_value(), "the command line is valid");
    {
        const captured_text errors(stderr);
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
    require(made.status == tool::exit_good || !made.messages.empty(), "a failure has a message");
    const bool has_target = settings->what == tool::command::join;
    if (settings->json)
        read_object(made.output, made.status, command,
                    has_target ? settings->output.string() : names.front());
    return made;
}

/// Runs `qrx LINE SOURCE`.
outcome run_tool(word_list line)
{
    return run_tool(std::move(line), {shared_files().source.name()});
}

/// An input without its image.
struct selection {
    explicit selection(input_bytes& input)
        : control(static_cast<u8>(input.take())), first(input.take(3)), size(input.take(3))
    {
    }

    u8 command() const { return control & command_mask; }
    bool has(u8 flag) const { return (control & flag) != 0; }
    bool is_bounded() const
    {
        const bool decodes = command() < list || command() == verify ||
                             (command() == split_join && has(with_itself));
        return decodes || !has(any_size);
    }
    /// Adds the flags that all commands take.
    word_list line(word_list words) const
    {
        if (has(as_json)) words.emplace_back("--json");
        if (has(is_verbose)) words.emplace_back("-v");
        return words;
    }

    const u8 control;
    const u32 first;
    const u32 size;
};

/// Runs `qrx join` with files that are pieces of one, or may be.
outcome join(const selection& input, const std::string& target, const word_list& names,
             const word_list& flags = {})
{
    word_list words{"join", "--no-sync", "-T1", "-o", target};
    words.insert(words.end(), flags.begin(), flags.end());
    outcome made = run_tool(input.line(words), names);
    require(test::file_exists(target) == (made.status == tool::exit_good),
            "a failed command leaves no file");
    return made;
}

/// Joins the image with itself, and compares the result with its content.
void compare_joined(const selection& input)
{
    const std::string source = shared_files().source.name();
    const std::string target = shared_files().directory / "joined.qrx";
    const outcome tested = run_tool({"test", "-T1"});
    const outcome whole = run_tool({"cat", "-T1"});
    const outcome alone = join(input, shared_files().directory / "alone.qrx", {source});
    const outcome joined = join(input, target, {source, source}, {"--verify"});
    // A join, like cat, ignores differences in reserved bytes, which a test finds.
    const bool is_good = whole.status == tool::exit_good;
    const bool is_perfect =
        tested.status == tool::exit_good && alone.status == tool::exit_good && is_good;
    bytes content = whole.output;
    const bool has_whole_blocks = content.size() % block_bytes == 0;
    require(joined.status != tool::exit_good || (is_good && has_whole_blocks),
            "the result of a join is verified");
    require(joined.status == tool::exit_good || !is_perfect || !has_whole_blocks,
            "whole blocks can be joined");
    if (joined.status != tool::exit_good) return;
    content.insert(content.end(), content.begin(), content.end());
    require(run_tool({"cat", "-T1"}, {target}).output == content,
            "joined files have both contents");
}

/// Splits the image, and joins the pieces again.
void compare_split(const selection& input)
{
    const test::temp_dir& directory = shared_files().directory;
    const std::string source = shared_files().source.name();
    const std::string number = std::to_string(1 + input.first % 5);
    const std::string whole = directory / "whole.qrx";
    word_list words{"split", "-f", "--no-sync", "-T1", "-o", directory / "piece"};
    if (input.size % 4 == 1) words.push_back("-n" + number);
    if (input.size % 4 > 1) words.push_back("--blocks=" + number);
    if (!input.is_bounded()) words.emplace_back("--no-seal");
    const outcome split = run_tool(input.line(words));
    word_list pieces = made_files();
    const outcome copied = join(input, whole, {source}); // the records in order
    if (split.status != tool::exit_good) {
        // Of a sealed file with a damaged block there are no pieces, but a copy.
        require(copied.status != tool::exit_good ||
                    (input.is_bounded() && run_tool({"cat", "-T1"}).status != tool::exit_good),
                "what can be copied can be split");
        return;
    }
    require(copied.status == tool::exit_good, "what can be split can be copied");
    std::reverse(pieces.begin(), pieces.end()); // join sorts them
    const std::string rejoined = directory / "rejoined.qrx";
    require(join(input, rejoined, pieces).status == tool::exit_good, "pieces can be joined");
    bytes expected = test::read_file(whole);
    const bytes result = test::read_file(rejoined);
    if (!input.is_bounded() && expected.size() == result.size() + seal_bytes)
        expected.resize(result.size());
    require(result == expected, "joining the pieces undoes the split");
    if (!input.is_bounded()) return;
    const outcome content = run_tool({"cat", "-T1"});
    const outcome again = run_tool({"cat", "-T1"}, {whole});
    require(again.status == content.status && again.output == content.output,
            "copied blocks have the same content");
}

/// Compares the image with its content, and with other content.
void compare_verified(const selection& input)
{
    memory_file& original = shared_files().original;
    const word_list words = input.line({"verify", "-T1", "--against=" + original.name()});
    const outcome tested = run_tool({"test", "-T1"});
    const outcome whole = run_tool({"cat", "-T1"});
    bytes content = whole.output;
    original.fill(content);
    // Only a test finds differences in reserved bytes.
    const bool is_verified = run_tool(words).status == tool::exit_good;
    require(is_verified || tested.status != tool::exit_good, "a good file is verified");
    require(!is_verified || whole.status == tool::exit_good, "verify finds what cat finds");
    if (tested.status != tool::exit_good) return;

    const bool is_longer = input.size % 2 == 1 || content.empty();
    const u64 offset = content.empty() ? 0 : input.first % content.size();
    if (is_longer)
        content.push_back(0);
    else
        content[static_cast<usize>(offset)] ^= 0x20;
    original.fill(content);
    const outcome changed = run_tool(words);
    require(changed.status == tool::exit_damaged, "a difference is damage");
    if (!input.has(as_json)) return;
    const tool::json object =
        read_object(changed.output, changed.status, "verify", shared_files().source.name());
    require(object.at("equal") == false &&
                object.at("first_difference") ==
                    (is_longer ? tool::json(nullptr) : tool::json(offset)),
            "the first difference is found");
}

/// Runs the commands that decode, and compares what they deliver.
void compare_decoded(const selection& input)
{
    const outcome tested = run_tool({"test", "-T1"});
    const outcome whole = run_tool({"cat", "-T1"});
    require(whole.status == tested.status || tested.status == tool::exit_damaged,
            "test finds what cat finds");
    if (input.command() == cat_range) {
        const std::string range = std::to_string(input.first) + "+" + std::to_string(input.size);
        const outcome part = run_tool({"cat", "-T1", "--range=" + range});
        if (whole.status != tool::exit_good) return;
        require(part.status == tool::exit_good &&
                    part.output == test::slice(whole.output, input.first, input.size),
                "a range is a part of the whole");
    } else if (input.command() == recover) {
        const std::string target = shared_files().directory / "recovered";
        const outcome saved =
            run_tool(input.line({"recover", "-f", "--no-sync", "-T1", "-o", target}));
        if (tested.status != tool::exit_good) return;
        require(saved.status == tool::exit_good && test::read_file(target) == whole.output,
                "all of a good file is recovered");
    } else {
        const word_list words = input.command() == info_test ? word_list{"info", "--test", "-T1"}
                                                             : word_list{"test", "-T2"};
        require(run_tool(input.line(words)).status == tested.status,
                "another test, also with threads, finds the same");
    }
}

/// Runs a command that only describes the image.
void describe(const selection& input)
{
    const outcome made = run_tool(input.line({input.command() == list ? "list" : "info"}));
    require((made.status == tool::exit_good) == made.messages.empty(),
            "a fault has a message, and nothing else has one");
}

void run_any(input_bytes bytes_left)
{
    const selection input(bytes_left);
    bytes image(bytes_left.rest().begin(), bytes_left.rest().end());
    const bool is_bounded = input.is_bounded();
    bound_sizes({.original_size = is_bounded, .block_size = is_bounded}, image);
    shared_files().source.fill(image);
    switch (input.command()) {
    case list:
    case info:
        describe(input);
        break;
    case split_join:
        input.has(with_itself) ? compare_joined(input) : compare_split(input);
        break;
    case verify:
        compare_verified(input);
        break;
    default:
        compare_decoded(input);
        break;
    }
    for (const std::string& name : made_files()) std::filesystem::remove(name);
}

bytes seed_of(u8 control, const bytes& image, u8 first = 100, u8 size = 1)
{
    return test::joined({{control, first, 0, 0, size, 0, 16}, image});
}

/// Adds seeds of several blocks for split, join and verify.
void add_split_seeds(std::vector<bytes>& seeds)
{
    bytes content(3 * block_bytes);
    content[block_bytes] = 1; // each block has another sum
    content.back() = 2;
    for (const bytes& image :
         {several_blocks()[0], compressed(params_of(1, 1, 0), content, true)}) {
        for (u8 size = 0; size < 4; ++size) {
            for (const choice command : {split_join, verify})
                seeds.push_back(seed_of(static_cast<u8>(command | as_json), image, 1, size));
        }
    }
    // Whole blocks, and none, can be joined with themselves.
    for (const usize size : {usize{0}, 2 * block_bytes}) {
        bytes image = compressed(params_of(1, 1, 0), bytes(size), true);
        for (const bool is_damaged : {false, true}) {
            if (is_damaged) image.back() ^= 1; // the seal
            for (const u8 other : {u8{0}, with_itself})
                seeds.push_back(seed_of(static_cast<u8>(split_join | as_json | other), image));
        }
    }
}

} // namespace

std::vector<bytes> make_seeds()
{
    std::vector<bytes> seeds;
    u8 flags = 0;
    for (const std::vector<bytes>& images : {several_blocks(), damaged_files()}) {
        for (const bytes& image : images) {
            for (u8 command = 0; command < command_count; ++command) {
                flags = static_cast<u8>((flags + 1) % 15);
                seeds.push_back(seed_of(static_cast<u8>(command | flags << 3), image));
            }
        }
    }
    for (u8 method = 1; method <= 5; ++method) {
        for (const u8 level : bytes{1, 8}) {
            const bytes content = test::find_shape("text").make(800, level);
            const bytes image =
                compressed(params_of(method, level, level % 3), content, level == 1);
            for (u8 command = 0; command < command_count; ++command)
                seeds.push_back(seed_of(static_cast<u8>(command | as_json), image));
        }
    }
    add_split_seeds(seeds);
    return seeds;
}

} // namespace quarnex::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    quarnex::fuzz::run_any(quarnex::fuzz::input_bytes({data, size}));
    return 0;
}
