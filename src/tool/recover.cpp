#include "tool/commands.h"

namespace tool {

int run_recover(const session& run)
{
    run.messages.error("not implemented");
    return exit_internal;
}

} // namespace tool
