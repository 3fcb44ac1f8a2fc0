#include "tool/process.h"

#include <cstdio>

namespace tool {

bool ask_on_terminal(const std::string& question)
{
    if (!stdin_is_terminal() || !stderr_is_terminal()) return false;
    std::fprintf(stderr, "%s", question.c_str());
    const int answer = std::getchar();
    int last = answer;
    while (last != '\n' && last != EOF) last = std::getchar();
    if (last == EOF) std::fputc('\n', stderr);
    return answer == 'y' || answer == 'Y';
}

} // namespace tool
