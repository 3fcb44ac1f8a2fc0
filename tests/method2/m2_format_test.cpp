#include "method2/m2_format.h"

#include "plain/m2_plain.h"

#include <gtest/gtest.h>

namespace quarnex {
namespace {

TEST(m2_gamma, has_one_bit_and_two_for_each_bit_after_the_leading_one)
{
    struct gamma_case {
        u32 v;
        u32 bits;
    };
    for (const auto& [v, bits] : {gamma_case{1, 1},
                                  {2, 3},
                                  {3, 3},
                                  {4, 5},
                                  {7, 5},
                                  {8, 7},
                                  {15, 7},
                                  {16, 9},
                                  {31, 9},
                                  {32, 11},
                                  {255, 15},
                                  {256, 17},
                                  {65535, 31},
                                  {65536, 33},
                                  {70001, 33},
                                  {0x7FFFFFFF, 61},
                                  {0x80000000, 63},
                                  {0xFFFFFFFF, 63}}) {
        EXPECT_EQ(m2_gamma_bits(v), bits) << v;
        EXPECT_EQ(m2_gamma_zeros(v), bits / 2) << v;
    }
}

TEST(m2_literal, costs_9_bits)
{
    EXPECT_EQ(m2_literal_bits, 9U);
}

TEST(m2_match_code, leaves_13_to_15_free_for_lengths_from_4)
{
    for (u32 len = 4; len <= 14; ++len) EXPECT_EQ(m2_match_code<4>(len), len - 2) << len;
    EXPECT_EQ(m2_match_code<4>(4), 2U);
    EXPECT_EQ(m2_match_code<4>(14), 12U);
    EXPECT_EQ(m2_match_code<4>(15), 16U);
    EXPECT_EQ(m2_match_code<4>(16), 17U);
    EXPECT_EQ(m2_match_code<4>(70000), 70001U);
}

TEST(m2_match_code, leaves_14_and_15_free_for_lengths_from_3)
{
    for (u32 len = 3; len <= 14; ++len) EXPECT_EQ(m2_match_code<3>(len), len - 1) << len;
    EXPECT_EQ(m2_match_code<3>(3), 2U);
    EXPECT_EQ(m2_match_code<3>(14), 13U);
    EXPECT_EQ(m2_match_code<3>(15), 16U);
    EXPECT_EQ(m2_match_code<3>(16), 17U);
    EXPECT_EQ(m2_match_code<3>(70000), 70001U);
}

/// The range of distance - 1 of a class.
struct class_row {
    u32 extra_bits;
    u32 first;
    u32 last;
};
constexpr class_row classes[]{
    {4, 0, 15},
    {4, 16, 31},
    {5, 32, 63},
    {5, 64, 95},
    {6, 96, 159},
    {6, 160, 223},
    {7, 224, 351},
    {7, 352, 479},
    {8, 480, 735},
    {8, 736, 991},
    {9, 992, 1503},
    {9, 1504, 2015},
    {10, 2016, 3039},
    {10, 3040, 4063},
    {11, 4064, 4095},
    {11, 4096, 6143},
    {12, 6144, 10239},
    {12, 10240, 14335},
    {13, 14336, 22527},
    {13, 22528, 30719},
    {14, 30720, 47103},
    {14, 47104, 63487},
    {15, 63488, 96255},
    {15, 96256, 129023},
    {16, 129024, 194559},
    {17, 194560, 325631},
    {18, 325632, 587775},
    {19, 587776, 1112063},
    {20, 1112064, 2160639},
    {21, 2160640, 4257791},
    {22, 4257792, 8452095},
    {30, 8452096, 33554431},
};
static_assert(std::size(classes) == m2_classes);

TEST(m2_distance_classes, have_the_widths_and_the_bases_of_the_format)
{
    for (u32 c = 0; c < m2_classes; ++c) {
        EXPECT_EQ(m2_extra_bits[c], classes[c].extra_bits) << c;
        EXPECT_EQ(m2_dist_base[c], classes[c].first) << c;
    }
}

TEST(m2_distance_classes, cover_the_distances_of_their_range)
{
    for (u32 c = 0; c < m2_classes; ++c) {
        EXPECT_EQ(m2_distance_class(classes[c].first + 1), c);
        EXPECT_EQ(m2_distance_class(classes[c].last + 1), c);
    }
}

TEST(m2_distance_classes, give_4065_to_4096_to_class_14_and_4097_to_class_15)
{
    for (u32 dist = 4065; dist <= 4096; ++dist) EXPECT_EQ(m2_distance_class(dist), 14U) << dist;
    EXPECT_EQ(m2_distance_class(4097), 15U);
    EXPECT_EQ(4097 - 1 - m2_dist_base[15], 0U);
    // Its codes reach further.
    EXPECT_EQ(m2_dist_base[14] + (1 << m2_extra_bits[14]), 6112U);
}

TEST(m2_distance_classes, give_the_longest_distance_to_class_31)
{
    EXPECT_EQ(m2_max_dist, 33554432U);
    EXPECT_EQ(m2_distance_class(m2_max_dist), 31U);
}

TEST(m2_distance_classes, match_those_of_the_plain_encoder)
{
    for (u32 c = 0; c < m2_classes; ++c) {
        EXPECT_EQ(m2_extra_bits[c], test::m2_plain_extra_bits(c));
        EXPECT_EQ(m2_dist_base[c] + 1, test::m2_plain_first_dist(c));
    }
    for (u32 dist = 1; dist <= 8192; ++dist)
        EXPECT_EQ(m2_distance_class(dist), test::m2_plain_class_of(dist)) << dist;
    for (u32 end = 8192; end < m2_max_dist; end += 2048) { // all other class limits
        ASSERT_EQ(m2_distance_class(end), test::m2_plain_class_of(end)) << end;
        ASSERT_EQ(m2_distance_class(end + 1), test::m2_plain_class_of(end + 1)) << end + 1;
    }
}

} // namespace
} // namespace quarnex
