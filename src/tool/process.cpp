#include "tool/process.h"

#include <cstdio>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace tool {

void release_freed_memory()
{
#if defined(__GLIBC__)
    constexpr int initial_threshold = 128 << 10;
    mallopt(M_MMAP_THRESHOLD, initial_threshold); // setting it stops its adaptation
#endif
}

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
