#include "pipeline/pipeline.h"

#include <cstdio>
#include <functional>
#include <utility>

namespace quarnex {
namespace {

/// Adds a thread to `threads`, or says that it didn't start.
void start_thread(std::vector<system_thread>& threads, std::function<void()> body)
{
    system_thread thread(std::move(body));
    if (thread.started()) {
        threads.push_back(std::move(thread));
    } else {
        std::fputs("Error thread_create.\n", stdout);
        std::fflush(stdout);
    }
}

} // namespace

pipeline_threads::pipeline_threads(pipeline_state& state, direction way) : state_(state)
{
    if (state.thread_count == 0) return;
    for (u32 i = 0; i < state.thread_count; ++i) {
        start_thread(workers_, [&state, way] { run_worker(state, way); });
    }
    start_thread(writer_, [&state] { run_writer(state); });
    ready_ = !workers_.empty() && !writer_.empty();
}

pipeline_threads::~pipeline_threads()
{
    stop_workers();
    stop_writer();
}

void pipeline_threads::stop_workers()
{
    for (usize i = 0; i < workers_.size(); ++i) {
        block_job end;
        end.parameters.method = end_of_jobs;
        state_.jobs.enqueue(std::move(end));
    }
    workers_.clear();
}

void pipeline_threads::stop_writer()
{
    if (!writer_.empty()) state_.writes.enqueue(write_job{});
    writer_.clear();
}

} // namespace quarnex
