#include "common/object_array.h"

#include "support/limited_allocator.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

int living = 0; // counted objects

struct counted {
    counted() { ++living; }
    ~counted() { --living; }
    counted(const counted&) = delete;
    counted& operator=(const counted&) = delete;
    int value = 7;
};

TEST(object_array, constructs_and_destroys_its_objects)
{
    test::limited_allocator memory;
    {
        object_array<counted> objects;
        ASSERT_TRUE(objects.make(memory.get(), 3));
        EXPECT_EQ(living, 3);
        EXPECT_EQ(objects[2].value, 7);
    }
    EXPECT_EQ(living, 0);
    EXPECT_EQ(memory.in_use(), 0U);
}

TEST(object_array, moves_without_moving_its_objects)
{
    object_array<counted> first;
    ASSERT_TRUE(first.make(system_allocator, 3));
    const counted* const address = &first[1];
    object_array<counted> second(std::move(first));
    EXPECT_EQ(&second[1], address);
    EXPECT_EQ(living, 3);
    ASSERT_TRUE(first.make(system_allocator, 2)) << "the source of a move is empty";
    first = object_array<counted>();
    EXPECT_EQ(living, 3);
    first = std::move(second);
    EXPECT_EQ(&first[1], address);
    EXPECT_EQ(second.size(), 0U);
}

TEST(object_array, without_memory_has_no_objects)
{
    test::limited_allocator memory;
    memory.refuse_from(1);
    object_array<counted> objects;
    EXPECT_FALSE(objects.make(memory.get(), 3));
    EXPECT_EQ(objects.size(), 0U);
    EXPECT_EQ(living, 0);
}

} // namespace
} // namespace quarnex
