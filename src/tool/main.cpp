// tool/main.cpp - the qrx program
#include "tool/commands.h"
#include "tool/process.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

namespace tool {
namespace {

[[noreturn]] void exit_out_of_memory()
{
    std::fputs("qrx: out of memory\n", stderr);
    std::_Exit(exit_failed);
}

/// Handles exceptions of initializers, which can't be caught; only std::bad_alloc can occur.
/// Initialized before all other objects.
class initializer_guard {
  public:
    void end() const { std::set_terminate(previous_); }

  private:
    std::terminate_handler previous_ = std::set_terminate(exit_out_of_memory);
};
[[gnu::init_priority(101)]] const initializer_guard guard;

int run_command(const session& run)
{
    switch (run.settings.what) {
    case command::compress:
        return run_compress(run);
    case command::decompress:
    case command::test:
        return run_decompress(run);
    case command::list:
        return run_list(run);
    case command::info:
        return run_info(run);
    case command::verify:
        return run_verify(run);
    case command::cat:
        return run_cat(run);
    case command::recover:
        return run_recover(run);
    case command::split:
        return run_split(run);
    case command::join:
        return run_join(run);
    case command::bench:
        return run_bench(run);
    }
    return exit_internal;
}

/// True if the content of files goes to standard output.
bool writes_to_stdout(const options& settings)
{
    switch (settings.what) {
    case command::compress:
    case command::decompress:
    case command::recover:
    case command::join:
        return settings.to_stdout || is_stdio(settings.output) ||
               (settings.output.empty() && settings.reads_stdin());
    default:
        return settings.what == command::cat;
    }
}

/// Progress would be written into content on the same terminal, or over the screen of a pager that
/// reads it.
bool wants_progress(const options& settings)
{
    if (!writes_to_stdout(settings)) return !settings.is_quiet();
    return settings.is_verbose() && !stdout_is_terminal();
}

int run(const std::vector<std::string>& words)
{
    int status = exit_good;
    const auto settings = read_command_line(words, status);
    if (settings) {
        console messages(settings->verbosity);
        progress_line progress(wants_progress(*settings));
        if (settings->memory_limit != 0) release_freed_memory();
        status = run_command({*settings, messages, progress});
    }
    const int error = close_output();
    if (error == 0) return status;
    console(0).error("standard output: " + system_error_text(error));
    return status > exit_failed ? status : exit_failed;
}

} // namespace
} // namespace tool

int main(int argc, char** argv)
{
    tool::guard.end();
    try {
        tool::prepare_process();
        return tool::run(tool::command_line_words(argc, argv));
    } catch (const std::bad_alloc&) {
        tool::console(0).error("out of memory");
        return tool::exit_failed;
    } catch (const std::exception& error) {
        tool::console(0).error(std::string("internal error: ") + error.what());
        return tool::exit_internal;
    }
}
