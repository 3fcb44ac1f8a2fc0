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

/// Adds the files that match a word with wildcards, or the word itself: the shells don't do it.
void add_matches(const std::wstring& word, std::vector<std::string>& words)
{
    const bool is_pattern = word.find_first_of(L"*?") != std::wstring::npos && word[0] != L'-';
    WIN32_FIND_DATAW found;
    const HANDLE search = is_pattern ? FindFirstFileW(word.c_str(), &found) : INVALID_HANDLE_VALUE;
    const size_t count = words.size();
    const path directory = path(word).parent_path();
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name = found.cFileName;
            if (name != L"." && name != L"..") words.push_back(to_text(directory / name));
        } while (FindNextFileW(search, &found) != 0);
        FindClose(search);
    }
    if (words.size() == count) words.push_back(to_text(path(word)));
}

UINT console_code_page = 0; // before the program started

void restore_code_page()
{
    SetConsoleOutputCP(console_code_page);
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
    for (int index = 0; index < count; ++index) add_matches(wide[index], words);
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
