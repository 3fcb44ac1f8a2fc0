#include "pipeline/codec.h"

#include "pipeline/errors.h"

#include <cstring>

namespace quarnex {

i32 store_block(const block_job& job)
{
    if (job.in_len != 0) std::memcpy(job.out_buf, job.in_buf, job.in_len);
    return static_cast<i32>(job.in_len);
}

i32 report_no_memory(const block_job& /*job*/)
{
    return report_fatal(error_no_memory);
}

} // namespace quarnex
