#include "support/program.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quarnex::test {
namespace {

/// Where the build has put the program.
std::string program_path()
{
    const char* const path = std::getenv("QUARNEX_PROGRAM");
    return path != nullptr ? path : "quarnex";
}

[[noreturn]] void become_program(std::vector<char*>& argv, const std::string& path,
                                 const program_options& options, int out, int err)
{
    const int null = open("/dev/null", O_RDONLY);
    dup2(null, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    if (!options.work_dir.empty() && chdir(options.work_dir.c_str()) != 0) _exit(126);
    alarm(static_cast<unsigned>(options.timeout_seconds));
    if (options.before_exec) options.before_exec();
    execv(path.c_str(), argv.data());
    _exit(127);
}

/// Appends what both pipes give to the two texts, until both are closed.
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

program_result run_program(const std::vector<std::string>& arguments,
                           const program_options& options)
{
    const std::string path = program_path();
    std::vector<std::string> words{options.argv0};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (pipe2(out.data(), O_CLOEXEC) != 0 || pipe2(err.data(), O_CLOEXEC) != 0) std::abort();
    const pid_t child = fork();
    if (child == 0) become_program(argv, path, options, out[1], err[1]);
    close(out[1]);
    close(err[1]);

    program_result result;
    drain({pollfd{out[0], POLLIN, 0}, pollfd{err[0], POLLIN, 0}}, {&result.out, &result.err});
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        result.status = 128 + (WTERMSIG(status) == SIGALRM ? SIGKILL : WTERMSIG(status));
    } else {
        result.status = WEXITSTATUS(status);
    }
    return result;
}

} // namespace quarnex::test
