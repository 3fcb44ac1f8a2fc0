#include "method5/m5_model.h"

#include <new>

namespace quarnex {

void* m5_encoder_init(const block_job& /*job*/)
{
    return new (std::nothrow) m5_model;
}

void* m5_decoder_init(const block_job& job)
{
    return m5_encoder_init(job);
}

void m5_release(const block_job& /*job*/, void* model)
{
    delete static_cast<m5_model*>(model);
}

} // namespace quarnex
