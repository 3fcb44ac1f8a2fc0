#include "pipeline/block_coder.h"
#include "pipeline/errors.h"
#include "pipeline/output_file.h"
#include "pipeline/pipeline.h"
#include "pipeline/progress.h"

#include <cstdio>
#include <utility>

namespace quarnex {
namespace {

/// Tells what went wrong with a block, as far as it is told.
void report_failure(block_result result, direction mode)
{
    if (result == block_result::failed && mode == direction::compress) {
        hide_progress();
        std::fputs("error compressing\n", stdout);
        std::fflush(stdout);
    }
    if (result == block_result::no_memory) report_fatal(error_no_memory);
}

} // namespace

void run_worker(pipeline_state& state, direction mode)
{
    const auto code_block = mode == direction::compress ? encode_block : decode_block;
    bool failed = false;
    for (;;) {
        block_job job = state.jobs.dequeue();
        if (!job.out_file) return;
        if (!failed) {
            write_job finished;
            const block_result result = code_block(state.buffers, job, finished);
            if (result == block_result::done) {
                state.writes.enqueue(std::move(finished));
                continue;
            }
            ++state.abort_count;
            report_failure(result, mode);
            failed = true;
        }
        state.settle(*job.out_file, job.block_index, mode);
    }
}

} // namespace quarnex
