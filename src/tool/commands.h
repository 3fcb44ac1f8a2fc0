// tool/commands.h - one function per command; each returns the exit status
#pragma once

#include "tool/library.h"

namespace tool {

int run_compress(const session& run);
int run_decompress(const session& run); // also tests
int run_list(const session& run);
int run_info(const session& run);
int run_verify(const session& run);
int run_cat(const session& run);
int run_recover(const session& run);
int run_split(const session& run);
int run_join(const session& run);
int run_bench(const session& run);

} // namespace tool
