#include "pipeline/block_coder.h"
#include "pipeline/errors.h"
#include "pipeline/output_file.h"
#include "pipeline/pipeline.h"

#include <cstdio>
#include <utility>

namespace quarnex {
namespace {

/// Tells what went wrong with a block, as far as it is told.
void report_failure(block_result result, direction way)
{
    if (result == block_result::failed && way == direction::compress) {
        std::fputs("error compressing\n", stdout);
        std::fflush(stdout);
    }
    if (result == block_result::no_memory) {
        report_error(error_no_memory, error_format(error_no_memory));
    }
}

} // namespace

void run_worker(pipeline_state& state, direction way)
{
    const auto code_block = way == direction::compress ? encode_block : decode_block;
    bool failed = false;
    for (;;) {
        block_job job = state.jobs.dequeue();
        if (job.parameters.method == end_of_jobs) return;
        if (!failed) {
            write_job finished;
            const block_result result = code_block(state.buffers, job, finished);
            if (result == block_result::done) {
                state.writes.enqueue(std::move(finished));
                continue;
            }
            ++state.abort_count;
            report_failure(result, way);
            failed = true;
        }
        if (way == direction::compress) job.out_file->window.settle(job.block_index);
    }
}

} // namespace quarnex
