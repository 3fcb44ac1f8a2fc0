#include "pipeline/driver_file.h"

#include <cerrno>

namespace quarnex {

void driver_file::tell(event happened) const
{
    happened.name = names_.source;
    happened.mode = mode_;
    engine_.tell(happened);
}

status driver_file::fail(event happened, status reason)
{
    engine_.wait_for_files();
    tell(happened);
    if (destination_) destination_->fail(reason);
    return engine_.fail(reason);
}

status driver_file::fail_to_write(int cause)
{
    engine_.wait_for_files();
    engine_.tell({.kind = event_kind::destination_unwritten,
                  .cause = cause,
                  .name = names_.destination,
                  .mode = mode_});
    if (destination_) destination_->fail(status::write_failed);
    return engine_.fail(status::write_failed);
}

status driver_file::open_source()
{
    int error = source_.open(names_.source);
    if (error == EMFILE) { // files in flight are open
        engine_.wait_for_blocks();
        error = source_.open(names_.source);
    }
    if (error == 0) return status::done;
    return fail({.kind = event_kind::source_unopened, .cause = error}, status::source_unopened);
}

status driver_file::create_destination()
{
    destination_ = output_file::make(engine_.source, names_.source, names_.destination);
    if (!destination_) return fail(event_kind::no_memory, status::no_memory);
    system_file& file = destination_->file;
    int error = file.create_new(names_.destination);
    if (error == EMFILE) {
        engine_.wait_for_blocks();
        error = file.create_new(names_.destination);
    }
    if (error != 0) {
        if (!engine_.may_replace(names_.source, names_.destination)) {
            destination_ = {};
            return status::skipped;
        }
        error = file.create(names_.destination);
    }
    if (error == 0) {
        engine_.tell_created(file.descriptor());
        return status::done;
    }
    engine_.tell({.kind = event_kind::destination_uncreated,
                  .cause = error,
                  .name = names_.destination,
                  .mode = mode_});
    return engine_.fail(status::destination_uncreated);
}

status driver_file::close_destination(u32 records, u32 block_count)
{
    if (engine_.has_workers()) {
        if (records != 0 && records < block_count) engine_.count_unfinished();
        return status::done;
    }
    const int error = destination_->file.close();
    return error == 0 ? status::done : fail_to_write(error);
}

status driver_file::advance(u64 done, u64 total)
{
    if (engine_.advance(done, total)) return status::done;
    destination_->fail(status::cancelled);
    return engine_.fail(status::cancelled);
}

} // namespace quarnex
