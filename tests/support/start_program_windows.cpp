#include "support/start_program.h"

#include "support/paths.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <thread>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace quarnex::test {
namespace {

/// A pipe whose write end the program inherits.
struct pipe_ends {
    HANDLE read_end = nullptr;
    HANDLE write_end = nullptr;
};

pipe_ends open_pipe()
{
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    pipe_ends ends;
    if (CreatePipe(&ends.read_end, &ends.write_end, &inherited, 0) == 0) std::abort();
    SetHandleInformation(ends.read_end, HANDLE_FLAG_INHERIT, 0);
    return ends;
}

/// Quotes an argument as the program's runtime parses it; wildcards stay active.
std::string quoted(const std::string& word)
{
    const bool plain = !word.empty() && word.find_first_of(" \t\"") == std::string::npos;
    if (plain) return word;
    std::string result = "\"";
    usize backslashes = 0;
    for (const char c : word) {
        if (c == '"') result.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        result += c;
    }
    return result.append(backslashes, '\\') + '"';
}

std::string command_line(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words) {
        if (!line.empty()) line += ' ';
        line += quoted(word);
    }
    return line;
}

/// Reads a pipe to its end and converts CR LF to LF.
std::string drain(HANDLE read_end)
{
    std::string text;
    std::array<char, 4096> chunk;
    DWORD got = 0;
    while (ReadFile(read_end, chunk.data(), chunk.size(), &got, nullptr) != 0 && got != 0)
        text.append(chunk.data(), got);
    CloseHandle(read_end);
    for (usize at = 0; (at = text.find("\r\n", at)) != std::string::npos;) text.erase(at, 1);
    return text;
}

PROCESS_INFORMATION start(const std::string& path, std::string line, const std::string& work_dir,
                          HANDLE out, HANDLE err)
{
    STARTUPINFOA how{};
    how.cb = sizeof(how);
    how.dwFlags = STARTF_USESTDHANDLES;
    how.hStdOutput = out;
    how.hStdError = err;
    PROCESS_INFORMATION process{};
    if (CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                       work_dir.empty() ? nullptr : work_dir.c_str(), &how, &process) == 0)
        std::abort();
    CloseHandle(process.hThread);
    return process;
}

/// Waits for a process and returns its exit status; kills it after the timeout.
int wait_for(HANDLE process, int timeout_seconds)
{
    constexpr DWORD status_killed = 137;
    if (WaitForSingleObject(process, static_cast<DWORD>(timeout_seconds) * 1000) != WAIT_OBJECT_0)
        TerminateProcess(process, status_killed);
    WaitForSingleObject(process, INFINITE);
    DWORD status = 0;
    GetExitCodeProcess(process, &status);
    CloseHandle(process);
    return static_cast<int>(status & 0xFF); // as other systems report it
}

} // namespace

program_result start_program(const std::string& path, std::vector<std::string> words,
                             const program_options& options)
{
    if (options.before_exec || options.err_is_terminal) std::abort(); // not supported here
    if (options.translates_paths) std::transform(words.begin(), words.end(), words.begin(), native);
    const pipe_ends out = open_pipe();
    const pipe_ends err = open_pipe();
    const PROCESS_INFORMATION process =
        start(path, command_line(words), options.work_dir, out.write_end, err.write_end);
    CloseHandle(out.write_end);
    CloseHandle(err.write_end);

    program_result result;
    std::thread out_reader([&] { result.out = drain(out.read_end); });
    std::thread err_reader([&] { result.err = drain(err.read_end); });
    result.status = wait_for(process.hProcess, options.timeout_seconds);
    out_reader.join();
    err_reader.join();
    if (options.translates_paths) {
        result.out = with_slashes(result.out);
        result.err = with_slashes(result.err);
    }
    return result;
}

std::string own_executable()
{
    std::array<char, MAX_PATH> name{};
    if (GetModuleFileNameA(nullptr, name.data(), name.size()) == 0) std::abort();
    return name.data();
}

} // namespace quarnex::test
