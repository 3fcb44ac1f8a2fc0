// Levels 8 and 9 of all methods on a small stack.
#include "match/ladder.h"

#include "support/codec_runs.h"
#include "support/limits.h"

#include <gtest/gtest.h>
#include <pthread.h>

namespace quarnex {
namespace {

struct encoder_run {
    u8 method;
    u8 level;
    usize size = 0; // of the stream
};

void* encode_text(void* context)
{
    auto& run = *static_cast<encoder_run*>(context);
    const test::bytes block = test::find_shape("text").make(300000, 1);
    run.size = test::encode(block, test::parameters_of(run.method, run.level)).size();
    return nullptr;
}

TEST(priced_levels_on_a_small_stack, write_their_streams)
{
    if (test::under_sanitizer) GTEST_SKIP() << "frames are larger with a sanitizer";
    for (u8 method = 1; method <= 5; ++method) {
        for (u8 level = 8; level <= 9; ++level) {
            encoder_run expected{method, level}, run{method, level};
            encode_text(&expected);
            pthread_attr_t attributes;
            ASSERT_EQ(pthread_attr_init(&attributes), 0);
            ASSERT_EQ(pthread_attr_setstacksize(&attributes, usize{256} << 10), 0);
            pthread_t thread;
            ASSERT_EQ(pthread_create(&thread, &attributes, encode_text, &run), 0);
            ASSERT_EQ(pthread_join(thread, nullptr), 0);
            pthread_attr_destroy(&attributes);
            EXPECT_EQ(run.size, expected.size) << int{method} << int{level};
        }
    }
}

} // namespace
} // namespace quarnex
