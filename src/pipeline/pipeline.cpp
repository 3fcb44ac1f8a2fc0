#include "pipeline/pipeline.h"

#include "common/platform.h"
#include "pipeline/output_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

namespace quarnex {

pipeline_state::pipeline_state(u32 workers)
    : thread_count(workers), buffers(2 * usize{workers} + 3), jobs(std::max(workers, 1U)),
      writes(std::max(workers, 1U))
{
}

void pipeline_state::enqueue(block_job job)
{
    under_way_.enter();
    jobs.enqueue(std::move(job));
}

void pipeline_state::settle(output_file& file, u32 block_index, direction mode)
{
    if (mode == direction::compress) file.window.settle(block_index);
    under_way_.leave();
}

std::shared_ptr<output_file> pipeline_state::create_destination(const std::string& name)
{
    const auto before = find_status(name.c_str());
    if (before && destinations_.contains(before->identity)) under_way_.wait_for_none();
    auto file = output_file::create(name);
    if (!file) {
        std::fprintf(stderr, "creat error '%s' '%s'\n", name.c_str(), std::strerror(errno));
        return file;
    }
    if (const auto made = find_status(name.c_str())) destinations_.insert(made->identity);
    return file;
}

namespace {

/// A thread that runs `body`; if it doesn't start, a message and null.
std::unique_ptr<system_thread> start_thread(std::function<void()> body)
{
    auto thread = std::make_unique<system_thread>(std::move(body));
    if (thread->started()) return thread;
    std::fputs("Error thread_create.\n", stdout);
    std::fflush(stdout);
    return {};
}

} // namespace

pipeline_threads::pipeline_threads(pipeline_state& state, direction mode) : state_(state)
{
    if (state.thread_count == 0) return;
    for (u32 i = 0; i < state.thread_count; ++i) {
        auto worker = start_thread([&state, mode] { run_worker(state, mode); });
        if (worker) workers_.push_back(std::move(worker));
    }
    writer_ = start_thread([&state] { run_writer(state); });
}

pipeline_threads::~pipeline_threads()
{
    for (usize i = 0; i < workers_.size(); ++i) {
        state_.jobs.enqueue(block_job{});
    }
    workers_.clear(); // joins them: all that they produce lies before the writer's end
    if (writer_) state_.writes.enqueue(write_job{});
    writer_.reset();
}

} // namespace quarnex
