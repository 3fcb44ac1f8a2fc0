#include "tool/process.h"

#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool {
namespace {

/// The temporary name of the file being written, which interruption removes; empty for none.
char interrupted_name[PATH_MAX];
std::atomic<bool> has_interrupted_name{false};

void on_interruption(int number)
{
    if (has_interrupted_name) unlink(interrupted_name);
    signal(number, SIG_DFL);
    raise(number);
}

/// Occupies the numbers of standard streams that are closed, which no file must get.  Their use
/// fails as that of closed streams does.
void occupy_closed_streams()
{
    for (const int handle : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(handle, F_GETFD) >= 0) continue;
        const int opened = open("/dev/null", handle == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (opened > STDERR_FILENO) close(opened);
    }
}

} // namespace

void remove_if_interrupted(const std::string& name)
{
    has_interrupted_name = false;
    if (name.empty() || name.size() >= sizeof interrupted_name) return;
    std::memcpy(interrupted_name, name.c_str(), name.size() + 1);
    has_interrupted_name = true;
}

void prepare_process()
{
    signal(SIGXFSZ, SIG_IGN); // writing fails with EFBIG
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler == SIG_IGN) continue; // nohup
        action.sa_handler = on_interruption;
        sigaction(number, &action, nullptr);
    }
    occupy_closed_streams();
}

std::vector<std::string> command_line_words(int argc, char** argv)
{
    return {argv, argv + argc};
}

bool stdin_is_terminal()
{
    return isatty(STDIN_FILENO) != 0;
}

bool stdout_is_terminal()
{
    return isatty(STDOUT_FILENO) != 0;
}

bool stderr_is_terminal()
{
    return isatty(STDERR_FILENO) != 0;
}

unsigned terminal_columns()
{
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
    return size.ws_col;
}

} // namespace tool
