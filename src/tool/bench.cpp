#include "tool/commands.h"

namespace tool {

int run_bench(const session& run)
{
    run.messages.error("not implemented");
    return exit_internal;
}

} // namespace tool
