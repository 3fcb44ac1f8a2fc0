// pipeline/encoders_fixture.h - parameterizes tests by encoder
#pragma once

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// The parameter is the method.
class encoders : public testing::TestWithParam<int> {
  protected:
    static codec_parameters parameters(u8 level, i32 hash_bits = 12)
    {
        return parameters_of(static_cast<u8>(GetParam()), level, hash_bits);
    }
};

} // namespace quarnex::test
