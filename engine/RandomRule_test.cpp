#include "engine/RandomRule.h"

#include "platform/Clock.h"
#include "platform/sim/Machine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <limits>

namespace {

TEST(RandomRule, DefaultsGiveMinus15To14)
{
    EXPECT_EQ(RandomMinutes(0, -15, 15), -15);
    EXPECT_EQ(RandomMinutes(1, -15, 15), -14);
    EXPECT_EQ(RandomMinutes(16384, -15, 15), 0);
    EXPECT_EQ(RandomMinutes(32767, -15, 15), 14);
}

TEST(RandomRule, FractionsAreCutTowardZeroOnBothSides)
{
    // The minutes run from -1 to just under 2 while the draw does from 0 to 32767.
    EXPECT_EQ(RandomMinutes(0, -1, 2), -1);
    EXPECT_EQ(RandomMinutes(1, -1, 2), 0);
    EXPECT_EQ(RandomMinutes(21845, -1, 2), 0);
    EXPECT_EQ(RandomMinutes(21846, -1, 2), 1);
    EXPECT_EQ(RandomMinutes(32767, -1, 2), 1);
}

TEST(RandomRule, ReversedBoundsGiveTheSame)
{
    for (int draw = 0; draw <= 32767; ++draw) {
        ASSERT_EQ(RandomMinutes(draw, 15, -15), RandomMinutes(draw, -15, 15));
    }
}

TEST(RandomRule, EqualBoundsGiveThemselves)
{
    for (const LONG bound : {-7, 0, 30}) {
        EXPECT_EQ(RandomMinutes(0, bound, bound), bound);
        EXPECT_EQ(RandomMinutes(32767, bound, bound), bound);
    }
}

TEST(RandomRule, ZeroTo30NeverGives30)
{
    int largest = 0;
    for (int draw = 0; draw <= 32767; ++draw) {
        const LONG minutes = RandomMinutes(draw, 0, 30);
        ASSERT_GE(minutes, 0);
        largest = std::max<int>(largest, minutes);
    }
    EXPECT_EQ(largest, 29);
}

TEST(RandomRule, WidestBoundsDoNotOverflow)
{
    constexpr LONG kLowest = std::numeric_limits<LONG>::min();
    constexpr LONG kHighest = std::numeric_limits<LONG>::max();
    EXPECT_EQ(RandomMinutes(0, kLowest, kHighest), kLowest);
    EXPECT_GT(RandomMinutes(32767, kLowest, kHighest), 2147000000);
}

TEST(RandomRule, GeneratorIsSeededOnceWithTheTime)
{
    // Between these bounds the minutes are the number drawn.
    constexpr LONG kMinimum = 0;
    constexpr LONG kMaximum = 32768;
    platform::sim::CMachine machine;
    CRandomRule rule;
    machine.RunFor(12345000);
    CRandomGenerator generator(static_cast<std::uint32_t>(platform::ReadTime()));
    EXPECT_EQ(rule.Draw(kMinimum, kMaximum), generator.Next());
    machine.RunFor(67890000);
    EXPECT_EQ(rule.Draw(kMinimum, kMaximum), generator.Next());
}

TEST(RandomGenerator, DrawsTheClassicSequence)
{
    // The sequence of the classic Windows C runtime after srand(1).
    CRandomGenerator generator(1);
    EXPECT_EQ(generator.Next(), 41);
    EXPECT_EQ(generator.Next(), 18467);
    EXPECT_EQ(generator.Next(), 6334);
    EXPECT_EQ(generator.Next(), 26500);
    EXPECT_EQ(generator.Next(), 19169);
}

TEST(RandomGenerator, StaysBetween0And32767)
{
    CRandomGenerator generator(0xFFFFFFFF);
    for (int i = 0; i < 100000; ++i) {
        const int number = generator.Next();
        ASSERT_GE(number, 0);
        ASSERT_LE(number, 32767);
    }
}

} // namespace
