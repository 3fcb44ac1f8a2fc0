// pipeline/encoders_fixture.h - the encoders of all methods
#pragma once

#include "support/codec_runs.h"

#include <gtest/gtest.h>

namespace quarnex::test {

/// By method.
class encoders : public testing::TestWithParam<int> {
  protected:
    static codec_parameters parameters(u8 level, i32 hash_bits = 12)
    {
        return parameters_of(static_cast<u8>(GetParam()), level, hash_bits);
    }
};

} // namespace quarnex::test
