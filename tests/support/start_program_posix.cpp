#include "support/start_program.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace quarnex::test {
namespace {

/// Both ends of a pipe; the program doesn't inherit them implicitly.
struct channel {
    int read_end = -1;
    int write_end = -1;
};

channel open_pipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) std::abort();
    return {ends[0], ends[1]};
}

/// A pseudo-terminal that passes output through unchanged.
channel open_terminal()
{
    channel ends;
    if (openpty(&ends.read_end, &ends.write_end, nullptr, nullptr, nullptr) != 0) std::abort();
    termios modes{};
    tcgetattr(ends.write_end, &modes);
    cfmakeraw(&modes);
    tcsetattr(ends.write_end, TCSANOW, &modes);
    fcntl(ends.read_end, F_SETFD, FD_CLOEXEC);
    fcntl(ends.write_end, F_SETFD, FD_CLOEXEC);
    return ends;
}

[[noreturn]] void become_program(std::vector<char*>& argv, const std::string& path,
                                 const program_options& options, int out, int err)
{
    const int null = open("/dev/null", O_RDONLY);
    dup2(null, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    if (!options.work_dir.empty() && chdir(options.work_dir.c_str()) != 0) _exit(126);
    const rlimit no_core{0, 0}; // an aborting program leaves no core file
    setrlimit(RLIMIT_CORE, &no_core);
    alarm(static_cast<unsigned>(options.timeout_seconds));
    if (options.before_exec) options.before_exec();
    execv(path.c_str(), argv.data());
    _exit(127);
}

/// Reads both pipes and appends to the two texts, until both are closed.
void drain(std::array<pollfd, 2> pipes, std::array<std::string*, 2> texts)
{
    std::array<char, 4096> chunk;
    while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
        if (poll(pipes.data(), pipes.size(), -1) < 0) continue;
        for (std::size_t i = 0; i < pipes.size(); ++i) {
            if (pipes[i].fd < 0 || pipes[i].revents == 0) continue;
            const ssize_t got = read(pipes[i].fd, chunk.data(), chunk.size());
            if (got > 0) {
                texts[i]->append(chunk.data(), static_cast<std::size_t>(got));
            } else {
                close(pipes[i].fd);
                pipes[i].fd = -1;
            }
        }
    }
}

} // namespace

program_result start_program(const std::string& path, std::vector<std::string> words,
                             const program_options& options)
{
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    const channel out = open_pipe();
    const channel err = options.err_is_terminal ? open_terminal() : open_pipe();
    const pid_t child = fork();
    if (child == 0) become_program(argv, path, options, out.write_end, err.write_end);
    close(out.write_end);
    close(err.write_end);

    program_result result;
    drain({pollfd{out.read_end, POLLIN, 0}, pollfd{err.read_end, POLLIN, 0}},
          {&result.out, &result.err});
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        result.status = 128 + (WTERMSIG(status) == SIGALRM ? SIGKILL : WTERMSIG(status));
    } else {
        result.status = WEXITSTATUS(status);
    }
    return result;
}

std::string own_executable()
{
    return "/proc/self/exe";
}

} // namespace quarnex::test
