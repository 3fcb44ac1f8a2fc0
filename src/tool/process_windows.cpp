#include "tool/process.h"

#include "tool/files.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <shellapi.h>

namespace tool {
namespace {

/// Returns the files that match a pattern, in the order of names.
std::vector<std::string> matches(const std::wstring& pattern)
{
    std::vector<std::string> names;
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return names;
    const path directory = path(pattern).parent_path();
    do {
        const std::wstring name = found.cFileName;
        if (name == L"." || name == L"..") continue;
        // No name must become an option.
        const bool is_like_option = directory.empty() && name[0] == L'-';
        names.push_back(to_text((is_like_option ? path(L".") : directory) / name));
    } while (FindNextFileW(search, &found) != 0);
    FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

/// Adds the files that match a word with wildcards, which no shell expands there, or the word
/// itself.
void add_expanded(const std::wstring& word, std::vector<std::string>& words)
{
    std::vector<std::string> found;
    if (word.find_first_of(L"*?") != std::wstring::npos && word[0] != L'-') found = matches(word);
    if (found.empty()) found.push_back(to_text(path(word)));
    words.insert(words.end(), found.begin(), found.end());
}

UINT console_code_page = 0; // before the program started

void restore_code_page()
{
    SetConsoleOutputCP(console_code_page);
}

/// On Ctrl-C, the default handler ends the program, without the functions of atexit().
BOOL WINAPI on_interruption(DWORD /*event*/)
{
    restore_code_page();
    return FALSE;
}

} // namespace

void prepare_process()
{
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    console_code_page = GetConsoleOutputCP();
    if (console_code_page == 0) return; // no console
    SetConsoleOutputCP(CP_UTF8);
    std::atexit(restore_code_page);
    SetConsoleCtrlHandler(on_interruption, TRUE);
    const HANDLE console = GetStdHandle(STD_ERROR_HANDLE);
    DWORD mode = 0;
    if (GetConsoleMode(console, &mode) != 0)
        SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
}

std::vector<std::string> command_line_words(int argc, char** argv)
{
    std::vector<std::string> words;
    int count = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
    if (wide == nullptr) return {argv, argv + argc};
    for (int index = 0; index < count; ++index) add_expanded(wide[index], words);
    LocalFree(wide);
    return words;
}

bool stdin_is_terminal()
{
    return _isatty(_fileno(stdin)) != 0;
}

bool stdout_is_terminal()
{
    return _isatty(_fileno(stdout)) != 0;
}

bool stderr_is_terminal()
{
    return _isatty(_fileno(stderr)) != 0;
}

unsigned terminal_columns()
{
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) == 0) return 80;
    return static_cast<unsigned>(std::max(info.srWindow.Right - info.srWindow.Left + 1, 2));
}

} // namespace tool
