// coding/codec_state.h - the state of a block in the memory of its job: init() and release() of
// codecs
#pragma once

#include "coding/codec.h"
#include "common/scratch.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

namespace quarnex {

/// Bytes that are allocated for a State: with room to align it further than allocators do.
template <class State>
constexpr usize state_size = sizeof(State) +
                             (alignof(State) > alignof(std::max_align_t) ? alignof(State) : 0);

/// Makes a State for one block; null without memory.
template <class State>
void* init_state(const codec_job& job)
{
    const allocator& source = job.memory->source;
    void* const memory = source.allocate(source.context, state_size<State>, memory_kind::plain);
    if (memory == nullptr) return nullptr;
    if constexpr (state_size<State> == sizeof(State)) {
        return new (memory) State;
    } else {
        // The byte before the state says how far it is from the start.
        static_assert(alignof(State) <= 128);
        u8* const start = static_cast<u8*>(memory);
        const usize misalignment = reinterpret_cast<std::uintptr_t>(start) % alignof(State);
        const usize distance = alignof(State) - misalignment;
        start[distance - 1] = static_cast<u8>(distance);
        return new (start + distance) State;
    }
}

/// Frees what init_state() made.
template <class State>
void release_state(const codec_job& job, void* state)
{
    static_assert(std::is_trivially_destructible_v<State>);
    const allocator& source = job.memory->source;
    u8* start = static_cast<u8*>(state);
    if constexpr (state_size<State> != sizeof(State)) start -= start[-1];
    source.release(source.context, start, state_size<State>, memory_kind::plain);
}

/// memory() of decoders with a State.
template <class State>
u64 state_bytes(const codec_parameters& /*parameters*/, u32 /*len*/)
{
    return state_size<State>;
}

} // namespace quarnex
