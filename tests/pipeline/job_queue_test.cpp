#include "pipeline/job_queue.h"

#include "support/waiting.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace quarnex {
namespace {

using test::finishes;
using test::in_thread;
using test::still_waits;

TEST(job_queue, records_come_out_in_fifo_order)
{
    const test::time_guard guard;
    for (const u32 capacity : {1U, 2U, 16U, 32U}) {
        job_queue<u32> queue(capacity);
        for (u32 i = 0; i < capacity; ++i) queue.enqueue(i);
        for (u32 i = 0; i < capacity; ++i) EXPECT_EQ(queue.dequeue(), i);
    }
}

TEST(job_queue, wraps_around_at_every_fill_level)
{
    const test::time_guard guard;
    for (u32 filling = 1; filling <= 5; ++filling) {
        job_queue<u32> queue(5);
        for (u32 i = 0; i < filling - 1; ++i) queue.enqueue(i);
        for (u32 i = filling - 1; i < 100; ++i) {
            queue.enqueue(i);
            ASSERT_EQ(queue.dequeue(), i + 1 - filling);
        }
    }
}

TEST(job_queue, a_producer_waits_while_the_ring_is_full)
{
    const test::time_guard guard;
    for (const u32 capacity : {1U, 3U}) {
        job_queue<u32> queue(capacity);
        for (u32 i = 0; i < capacity; ++i) queue.enqueue(i);
        const auto producer = in_thread([&] { queue.enqueue(capacity); });
        EXPECT_TRUE(still_waits(producer));
        EXPECT_EQ(queue.dequeue(), 0U);
        EXPECT_TRUE(finishes(producer));
        for (u32 i = 1; i <= capacity; ++i) EXPECT_EQ(queue.dequeue(), i);
    }
}

TEST(job_queue, a_consumer_waits_while_the_ring_is_empty)
{
    const test::time_guard guard;
    job_queue<u32> queue(3);
    u32 taken = 0;
    const auto consumer = in_thread([&] { taken = queue.dequeue(); });
    EXPECT_TRUE(still_waits(consumer));
    queue.enqueue(42);
    ASSERT_TRUE(finishes(consumer));
    EXPECT_EQ(taken, 42U);
}

TEST(job_queue, a_consumer_waits_again_after_the_ring_becomes_empty)
{
    const test::time_guard guard;
    job_queue<u32> queue(2);
    for (u32 i = 0; i < 5; ++i) {
        queue.enqueue(i);
        queue.dequeue();
    }
    const auto consumer = in_thread([&] { queue.dequeue(); });
    EXPECT_TRUE(still_waits(consumer));
    queue.enqueue(0);
    EXPECT_TRUE(finishes(consumer));
}

TEST(job_queue, carries_move_only_records)
{
    job_queue<std::unique_ptr<int>> queue(2);
    queue.enqueue(std::make_unique<int>(7));
    EXPECT_EQ(*queue.dequeue(), 7);
}

TEST(job_queue, keeps_no_part_of_a_dequeued_record)
{
    const auto shared = std::make_shared<int>(1);
    job_queue<std::shared_ptr<int>> queue(2);
    queue.enqueue(shared);
    queue.dequeue().reset();
    EXPECT_EQ(shared.use_count(), 1);
}

TEST(job_queue, destroys_the_records_left_in_it)
{
    const auto shared = std::make_shared<int>(1);
    {
        job_queue<std::shared_ptr<int>> queue(2);
        queue.enqueue(shared);
    }
    EXPECT_EQ(shared.use_count(), 1);
}

struct crowd {
    u32 capacity;
    u32 producers;
    u32 consumers;
};

class job_queue_crowd : public testing::TestWithParam<crowd> {};

TEST_P(job_queue_crowd, every_record_is_delivered_exactly_once)
{
    constexpr u32 records = 2000; // per producer
    constexpr u32 end = ~u32{0};
    const test::time_guard guard;
    const crowd people = GetParam();
    job_queue<u32> queue(people.capacity);
    std::vector<std::atomic<int>> delivered(people.producers * records);
    std::atomic<int> out_of_order = 0;

    std::vector<std::future<void>> consumers;
    for (u32 i = 0; i < people.consumers; ++i) {
        consumers.push_back(in_thread([&] {
            std::vector<u32> next(people.producers); // expected record number by producer
            for (u32 record = queue.dequeue(); record != end; record = queue.dequeue()) {
                ++delivered[record];
                if (record % records < next[record / records]) ++out_of_order;
                next[record / records] = record % records + 1;
            }
        }));
    }
    {
        std::vector<std::future<void>> producers;
        for (u32 i = 0; i < people.producers; ++i) {
            producers.push_back(in_thread([&queue, i] {
                for (u32 record = 0; record < records; ++record)
                    queue.enqueue(i * records + record);
            }));
        }
    }
    for (u32 i = 0; i < people.consumers; ++i) queue.enqueue(end);
    for (const auto& consumer : consumers) consumer.wait();

    EXPECT_EQ(std::count(delivered.begin(), delivered.end(), 1),
              static_cast<std::ptrdiff_t>(delivered.size()));
    EXPECT_EQ(out_of_order, 0);
}

std::string crowd_name(const testing::TestParamInfo<crowd>& info)
{
    return "capacity_" + std::to_string(info.param.capacity) + "_producers_" +
           std::to_string(info.param.producers) + "_consumers_" +
           std::to_string(info.param.consumers);
}

INSTANTIATE_TEST_SUITE_P(, job_queue_crowd,
                         testing::Values(crowd{1, 1, 1}, crowd{1, 3, 3}, crowd{2, 1, 4},
                                         crowd{16, 4, 1}, crowd{16, 4, 4}),
                         crowd_name);

} // namespace
} // namespace quarnex
