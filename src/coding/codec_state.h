// coding/codec_state.h - the state of a block in the memory of its job: init() and release() of
// codecs
#pragma once

#include "coding/codec.h"
#include "common/scratch.h"

#include <new>
#include <type_traits>

namespace quarnex {

/// Makes a State for one block; null without memory.
template <class State>
void* init_state(const codec_job& job)
{
    const allocator& source = job.memory->source;
    void* const memory = source.allocate(source.context, sizeof(State), memory_kind::plain);
    return memory != nullptr ? new (memory) State : nullptr;
}

/// Frees what init_state() made.
template <class State>
void release_state(const codec_job& job, void* state)
{
    static_assert(std::is_trivially_destructible_v<State>);
    const allocator& source = job.memory->source;
    source.release(source.context, state, sizeof(State), memory_kind::plain);
}

/// memory() of decoders with a State.
template <class State>
u64 state_bytes(const codec_parameters& /*parameters*/, u32 /*len*/)
{
    return sizeof(State);
}

} // namespace quarnex
