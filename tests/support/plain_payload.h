// support/plain_payload.h - compares an encoder with the plain encoder
#pragma once

#include "plain/plain_encode.h"
#include "support/codec_runs.h"

#include <gtest/gtest.h>
#include <string>

namespace quarnex::test {

/// Expects that `block`, of the shape `name`, is encoded as by the plain encoder and decoded back.
inline void expect_plain_payload(const bytes& block, const codec_parameters& parameters,
                                 const std::string& name)
{
    const bytes payload = encode(block, parameters);
    ASSERT_TRUE(payload == plain_encode(block, parameters))
        << block.size() << " bytes of " << name << ", hash bits " << parameters.hash_bits
        << ", chain bits " << parameters.chain_bits << ", context bits "
        << int{parameters.lit_ctx_bits};
    if (payload.size() == block.size()) return; // stored: no decoder reads it
    ASSERT_TRUE(decode(payload, block.size(), parameters) == block) << name;
}

} // namespace quarnex::test
