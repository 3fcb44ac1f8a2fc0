#include "tool/options.h"

#include "tool/console.h"
#include "tool/files.h"
#include "tool/presets.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace tool {
namespace {

struct command_entry {
    const char* word;
    command what;
    const char* summary;
};

constexpr std::array commands{
    command_entry{"test", command::test, "decode files completely to check them"},
    command_entry{"list", command::list, "print sizes, ratios and parameters"},
    command_entry{"info", command::info, "print all details, with a map of the blocks"},
    command_entry{"verify", command::verify, "compare files with their originals"},
    command_entry{"cat", command::cat, "write files, or a range of them, to standard output"},
    command_entry{"recover", command::recover, "save what can be read from damaged files"},
    command_entry{"split", command::split, "split files into pieces at block boundaries"},
    command_entry{"join", command::join, "join pieces into one file"},
    command_entry{"bench", command::bench, "measure methods and levels on your files"},
};

const command_entry* find_command(const std::string& word)
{
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const command_entry& entry) { return word == entry.word; });
    return found != commands.end() ? found : nullptr;
}

bool is_digit(char character)
{
    return character >= '0' && character <= '9';
}

/// Letters of options that have a value.
constexpr std::string_view value_letters = "bCnoT";

bool has_value(char letter)
{
    return value_letters.find(letter) != std::string_view::npos;
}

/// Whether the value of the last option in a word is the next word.
bool expects_value(const std::string& word)
{
    constexpr std::array<std::string_view, 14> options{
        "--output",  "--directory",    "--level",   "--block-size", "--threads",
        "--range",   "--memory-limit", "--against", "--pieces",     "--blocks",
        "--seconds", "--cells",        "--plot",    "--like"};
    if (word.size() < 2 || word[0] != '-') return false;
    if (word[1] == '-') return std::find(options.begin(), options.end(), word) != options.end();
    return std::find_if(word.begin(), word.end(), has_value) == word.end() - 1;
}

/// Makes the digits of a word like "-9", "-33" or "-c9" a separate --level option: short options of
/// CLI11 have one character.  The search stops at a letter whose option takes a value.
void add_expanded(const std::string& word, std::vector<std::string>& words)
{
    const auto is_end = [](char character) { return is_digit(character) || has_value(character); };
    const auto first = std::find_if(word.begin(), word.end(), is_end);
    if (word.size() < 2 || word[0] != '-' || word[1] == '-' || first == word.end() ||
        !is_digit(*first)) {
        words.push_back(word);
        return;
    }
    const auto last = std::find_if_not(first, word.end(), is_digit);
    if (first - word.begin() > 1) words.emplace_back(word.begin(), first);
    words.push_back("--level=" + std::string(first, last));
    if (last != word.end()) add_expanded("-" + std::string(last, word.end()), words);
}

/// CLI11 takes the operand "[a,b]" for a list of the operands "a" and "b", and "{}" for none.  A
/// character that no name contains prevents both.
constexpr char operand_mark = '\0';

/// Rewrites the words of a command line that CLI11 would read differently.
std::vector<std::string> expand(const std::vector<std::string>& words)
{
    std::vector<std::string> expanded;
    bool is_value = false;
    bool only_operands = false; // after "--"
    for (const std::string& word : words) {
        const bool is_operand = only_operands || word == "-" || word.empty() || word[0] != '-';
        if (is_value) {
            expanded.push_back(word);
            is_value = false;
        } else if (is_operand) {
            expanded.push_back(operand_mark + word);
        } else if (word[1] == '-' && word.back() == '=' &&
                   expects_value(word.substr(0, word.size() - 1))) {
            // "--output=" has an empty value, which isn't the next word.
            expanded.insert(expanded.end(), {word.substr(0, word.size() - 1), ""});
        } else {
            add_expanded(word, expanded);
            only_operands = word == "--";
            is_value = expects_value(word);
        }
    }
    return expanded;
}

/// Makes CLI11 read numbers as decimal ones: by itself, it takes "010" for 8.
CLI::Validator decimal()
{
    const auto strip = [](std::string& text) {
        if (text.empty() || !std::all_of(text.begin(), text.end(), is_digit))
            return "'" + text + "' is not a number";
        text.erase(0, std::min(text.find_first_not_of('0'), text.size() - 1));
        return std::string();
    };
    return CLI::Validator(strip, "");
}

/// Reads a number of bytes: digits, and K, M, G or T for powers of 1024.
uint64_t read_size(const std::string& text)
{
    constexpr std::string_view units = "KMGT";
    size_t used = 0;
    uint64_t value = 0;
    if (!text.empty() && is_digit(text[0])) {
        try {
            value = std::stoull(text, &used);
        } catch (const std::out_of_range&) {
            used = 0;
        }
    }
    unsigned shift = 0;
    std::string unit = text.substr(used);
    if (!unit.empty()) {
        const auto found = units.find(static_cast<char>(std::toupper(unit[0])));
        if (found != std::string_view::npos) shift = 10 * (static_cast<unsigned>(found) + 1);
        if (unit.size() > 1 && unit.substr(1) != "B" && unit.substr(1) != "iB") shift = 0;
        unit = shift != 0 ? "" : unit;
    }
    if (used == 0 || !unit.empty() || value > (UINT64_MAX >> shift))
        throw CLI::ValidationError("'" + text + "' is not a size such as 4096, 64K or 2G");
    return value << shift;
}

/// Reads "A:B", "A:", ":B" (from byte A up to but not including B) or "A+N" (N bytes from A).
byte_range read_range(const std::string& text)
{
    byte_range range;
    const size_t mark = text.find_first_of(":+");
    if (mark == std::string::npos)
        throw CLI::ValidationError("'" + text + "' is not a range such as 1000:2000 or 4M+64K");
    const std::string first = text.substr(0, mark);
    const std::string last = text.substr(mark + 1);
    if (!first.empty()) range.first = read_size(first);
    if (text[mark] == '+') {
        const uint64_t size = read_size(last);
        range.last = size > UINT64_MAX - range.first ? UINT64_MAX : range.first + size;
    } else if (!last.empty()) {
        range.last = read_size(last);
    }
    if (range.last < range.first)
        throw CLI::ValidationError("the range " + text + " ends before it starts");
    return range;
}

/// Reads a cell (two digits) or, if `allows_preset`, a preset.
int read_cell(const std::string& text, bool allows_preset)
{
    const bool is_number = !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
    const int number = is_number && text.size() <= 2 ? std::stoi(text) : 0;
    if (text.size() == 2 && number >= 10 && number <= 59) return number;
    if (allows_preset && text.size() == 1 && number != 0)
        return preset_cells[static_cast<size_t>(number)];
    throw CLI::ValidationError("-" + text + ": not " +
                               (allows_preset ? "a preset (1 to 9) or " : "") +
                               "a method (1 to 5) and a level (0 to 9)");
}

std::string preset_help()
{
    std::string text = "Presets:";
    for (size_t preset = 1; preset < preset_cells.size(); ++preset)
        text += " -" + std::to_string(preset) + " = -" + std::to_string(preset_cells[preset]) +
                (preset == default_preset ? " (default)" : "") +
                (preset + 1 < preset_cells.size() ? "," : "");
    return text;
}

std::string command_help()
{
    std::string text = "Commands (qrx COMMAND -h prints their help):\n";
    for (const command_entry& entry : commands) {
        std::string line = "  " + std::string(entry.word);
        line.resize(12, ' ');
        text += line + entry.summary + "\n";
    }
    return text + "\n" + preset_help();
}

/// Declares the options of the command line.
class command_line {
  public:
    command_line(options& settings, CLI::App& app) : settings_(settings), app_(app) {}

    void add_names(const char* label, const char* text, bool is_required)
    {
        auto* names = app_.add_option_function<std::vector<std::string>>(
            label,
            [this](const std::vector<std::string>& words) {
                for (const std::string& word : words)
                    settings_.names.push_back(to_path(word.substr(word.find(operand_mark) + 1)));
            },
            text);
        names->type_name("");
        if (is_required) names->required();
    }

    void add_common()
    {
        add_flag("-q,--quiet", "print no warnings and no progress",
                 [this] { settings_.verbosity = -1; });
        add_flag("-v,--verbose", "print details of each file", [this] { settings_.verbosity = 1; });
        if (settings_.what != command::cat) // it has another output
            app_.add_flag("--json", settings_.json, "print one JSON object per file");
    }

    void add_resources()
    {
        add_number("-T,--threads", settings_.threads, "worker threads; 0: one per processor", 0,
                   QRX_MAX_THREADS);
        add_size("--memory-limit", settings_.memory_limit,
                 "limit memory use, for example to 500M, by running fewer threads");
    }

    void add_outputs()
    {
        const bool is_stem = settings_.what == command::split;
        add_path("-o,--output", settings_.output,
                 is_stem ? "start of the names of the pieces" : "write to this file");
        if (settings_.what != command::join) // it has one output
            add_path("-C,--directory", settings_.directory, "write into this directory");
        app_.add_flag("-f,--force", settings_.force, "overwrite existing files");
        add_flag("--no-sync", "do not flush outputs to disk", [this] { settings_.syncs = false; });
    }

    void add_recursive()
    {
        app_.add_flag("-r,--recursive", settings_.recursive,
                      "include directories and all they contain");
    }

    void add_cell()
    {
        app_.add_option_function<std::string>(
                "--level",
                [this](const std::string& text) {
                    const int cell = read_cell(text, true);
                    settings_.params.method = static_cast<uint32_t>(cell / 10);
                    settings_.params.level = static_cast<uint32_t>(cell % 10);
                },
                "1 (fast) to 9 (small), or two digits, method and level; same as -5, -33")
            ->type_name("N");
        add_block_size();
        add_path("--like", settings_.like, "use the parameters of this .qrx file");
        add_flag("--no-seal", "write no checksum (seal)", [this] { settings_.seals = false; });
    }

    void add_main()
    {
        add_names("FILE", "standard input if omitted or -", false);
        add_flag("-d,--decompress", "decompress", [this] { settings_.what = command::decompress; });
        add_flag("-t,--test", "check files", [this] { settings_.what = command::test; });
        add_flag("-l,--list", "list files", [this] { settings_.what = command::list; });
        add_flag("-z,--compress", "compress (default)",
                 [this] { settings_.what = command::compress; });
        app_.add_flag("-c,--stdout", settings_.to_stdout, "write to standard output");
        add_outputs();
        add_flag("-k,--keep", "keep sources (default)",
                 [this] { settings_.removes_source = false; });
        add_flag("--rm", "remove each source after its output is verified and flushed",
                 [this] { settings_.removes_source = true; });
        add_recursive();
        add_cell();
        app_.add_flag("--verify", settings_.verifies, "compare each output with its source");
        add_resources();
        add_common();
    }

    void add_command()
    {
        switch (settings_.what) {
        case command::test:
            add_names("FILE", "standard input if omitted or -", false);
            add_recursive();
            add_resources();
            break;
        case command::list:
            add_names("FILE", "standard input if omitted or -", false);
            add_recursive();
            break;
        case command::info:
            add_names("FILE", "standard input if omitted or -", false);
            add_recursive();
            app_.add_flag("--test", settings_.tests_blocks,
                          "decode all blocks, and mark damaged ones in the map");
            add_resources();
            break;
        case command::verify:
            add_names("FILE", "compressed files, with their originals beside them", true);
            add_path("--against", settings_.output, "original of the only file; -: standard input");
            add_recursive();
            add_resources();
            break;
        case command::cat:
            add_names("FILE", "standard input if omitted or -", false);
            add_range();
            add_resources();
            break;
        case command::recover:
            add_names("FILE", "damaged files", true);
            add_outputs();
            add_resources();
            break;
        case command::split:
            add_names("FILE", "compressed files", true);
            add_outputs();
            add_pieces();
            add_resources();
            break;
        case command::join:
            add_names("PIECE", "pieces, in order unless their names are numbered", true);
            add_outputs();
            app_.add_flag("--verify", settings_.verifies, "decode the result to check it");
            add_resources();
            break;
        case command::bench:
            add_bench();
            break;
        default:
            break;
        }
        add_common();
    }

    void check() const
    {
        const auto refuse = [](bool is_wrong, const char* text) {
            if (is_wrong) throw CLI::ValidationError(text);
        };
        refuse(!settings_.output.empty() && settings_.names.size() > 1 &&
                   settings_.what != command::join,
               "-o and --against take one input file");
        refuse(settings_.to_stdout && !settings_.output.empty(), "-c and -o exclude each other");
        refuse(!settings_.directory.empty() && (settings_.to_stdout || !settings_.output.empty()),
               "-C excludes -c and -o");
        refuse(!settings_.directory.empty() && settings_.reads_stdin(),
               "-C needs the names of files: standard input has none");
        refuse(settings_.to_stdout && settings_.removes_source, "-c and --rm exclude each other");
        refuse(settings_.to_stdout && settings_.names.size() > 1 &&
                   settings_.what == command::compress,
               "-c compresses one file at a time");
        refuse(settings_.to_stdout && settings_.json &&
                   (settings_.what == command::compress || settings_.what == command::decompress),
               "-c and --json both write to standard output");
        refuse(settings_.to_stdout && settings_.verifies && settings_.what == command::decompress,
               "--verify needs an output file to read back");
        refuse(settings_.what == command::join && settings_.output.empty(), "join needs -o FILE");
        check_like(refuse);
    }

  private:
    template <class Refuse>
    void check_like(Refuse refuse) const
    {
        if (settings_.like.empty()) return;
        refuse(settings_.what != command::compress, "--like applies only to compression");
        refuse(is_stdio(settings_.like), "--like takes the name of a file, not -");
        refuse(app_.count("--level") != 0, "--like excludes presets and --level");
        refuse(app_.count("--block-size") != 0, "--like excludes -b");
    }

    template <class Action>
    void add_flag(const char* names, const char* text, Action action)
    {
        app_.add_flag_callback(names, action, text)->trigger_on_parse();
    }

    void add_number(const char* names, uint32_t& value, const char* text, uint32_t low,
                    uint32_t high)
    {
        app_.add_option(names, value, text)
            ->transform(decimal())
            ->check(CLI::Range(low, high).description(""))
            ->type_name("N");
    }

    void add_block_size()
    {
        add_number("-b,--block-size", settings_.params.block_mib,
                   "block size in MiB, 1 to 2047 (default 32; at levels 4 to 7 at most 16)", 1,
                   2047);
    }

    void add_size(const char* names, uint64_t& value, const char* text)
    {
        app_.add_option_function<std::string>(
                names, [&value](const std::string& word) { value = read_size(word); }, text)
            ->type_name("SIZE");
    }

    void add_path(const char* names, path& value, const char* text)
    {
        app_.add_option_function<std::string>(
                names,
                [&value, names](const std::string& word) {
                    // The value of an unset variable of a script, rather than no option.
                    if (word.empty()) throw CLI::ValidationError(names, "the name is empty");
                    value = to_path(word);
                },
                text)
            ->type_name("NAME");
    }

    void add_range()
    {
        app_.add_option_function<std::string>(
                "--range", [this](const std::string& word) { settings_.range = read_range(word); },
                "from byte A up to but not including B; A+N: N bytes from A")
            ->type_name("A:B");
    }

    void add_pieces()
    {
        const auto count = [this](const char* names, uint64_t& value, const char* text) {
            return app_.add_option(names, value, text)
                ->transform(decimal())
                ->check(CLI::Range(uint64_t{1}, uint64_t{UINT32_MAX}).description(""))
                ->type_name("N");
        };
        auto* pieces = count("-n,--pieces", settings_.piece_count, "number of pieces (default 2)");
        count("--blocks", settings_.piece_blocks, "blocks per piece")->excludes(pieces);
        add_flag("--no-seal", "write no checksums, which saves decoding",
                 [this] { settings_.seals = false; });
    }

    void add_bench()
    {
        add_names("FILE", "files to measure with", true);
        app_.add_option_function<std::vector<std::string>>(
                "--cells",
                [this](const std::vector<std::string>& words) {
                    for (const std::string& word : words)
                        settings_.cells.push_back(read_cell(word, false));
                },
                "methods and levels, two digits each (default: all)")
            ->delimiter(',')
            ->allow_extra_args(false)
            ->type_name("ML,...");
        add_path("--plot", settings_.plot, "draw speeds and ratios to this file (SVG)");
        app_.add_option("--seconds", settings_.min_seconds,
                        "repeat each measurement for this long (default 0.5)")
            ->check(CLI::Range(0.0, 3600.0).description(""))
            ->type_name("S");
        app_.add_flag("-f,--force", settings_.force, "overwrite existing files");
        add_block_size();
        settings_.threads = 1; // makes speeds comparable between machines
        add_number("-T,--threads", settings_.threads,
                   "worker threads (default 1); 0: one per processor", 0, QRX_MAX_THREADS);
        add_size("--memory-limit", settings_.memory_limit,
                 "fail if more memory than this is needed, files included");
    }

    options& settings_;
    CLI::App& app_;
};

/// Applies the settings of a program name: unqrx or qrxcat.
void apply_name(const std::string& word, options& settings)
{
    const std::string name = path(word).stem().string();
    if (name != "unqrx" && name != "qrxcat") return;
    settings.what = command::decompress;
    settings.to_stdout = settings.force = name == "qrxcat";
}

int print_text(const std::string& text)
{
    print_line(text);
    return exit_good;
}

/// Returns CLI11's message as one line without a final full stop.
std::string message_of(const CLI::ParseError& error)
{
    std::string text = error.what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && (text.back() == '.' || text.back() == ' ')) text.pop_back();
    return printable(std::string_view(text));
}

} // namespace

std::optional<options> read_command_line(const std::vector<std::string>& words, int& status)
{
    options settings;
    settings.params.struct_size = sizeof settings.params;
    settings.params.method = preset_cells[default_preset] / 10;
    settings.params.level = preset_cells[default_preset] % 10;
    std::vector<std::string> rest(words.begin() + (words.empty() ? 0 : 1), words.end());
    if (!words.empty()) apply_name(words[0], settings);
    const command_entry* entry =
        rest.empty() || settings.what != command::compress ? nullptr : find_command(rest[0]);
    CLI::App app(entry != nullptr ? entry->summary : "compress and decompress files",
                 entry != nullptr ? "qrx " + std::string(entry->word) : "qrx");
    app.allow_windows_style_options(false);
    bool wants_version = false;
    command_line line(settings, app);
    if (entry != nullptr) {
        settings.what = entry->what;
        rest.erase(rest.begin());
        line.add_command();
    } else {
        line.add_main();
        app.add_flag("-V,--version", wants_version, "print the version");
        app.footer(command_help());
    }
    app.set_help_flag("-h,--help", "print this help");
    for (CLI::Option* option : app.get_options())
        if (option->get_items_expected_max() == 1)
            option->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    std::vector<std::string> arguments = expand(rest);
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(arguments);
        if (wants_version) {
            status = print_text("qrx " + std::string(qrx_version()));
            return {};
        }
        line.check();
    } catch (const CLI::CallForHelp&) {
        status = print_text(app.help());
        return {};
    } catch (const CLI::ParseError& error) {
        console(0).error(message_of(error) + " (" + app.get_name() + " -h prints help)");
        status = exit_failed;
        return {};
    }
    return settings;
}

} // namespace tool
