#include "support/program.h"

#include "support/start_program.h"

#include <cstdlib>
#include <regex>

namespace quarnex::test {
namespace {

/// Returns the path of the built program.
std::string program_path()
{
    const char* const path = std::getenv("QUARNEX_PROGRAM");
    return path != nullptr ? path : "quarnex";
}

} // namespace

program_result run_program(const std::vector<std::string>& arguments,
                           const program_options& options)
{
    std::vector<std::string> words{options.argv0};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return start_program(program_path(), words, options);
}

bool matches(const std::string& text, const std::string& pattern)
{
    return std::regex_match(text, std::regex(pattern, std::regex::extended));
}

} // namespace quarnex::test
