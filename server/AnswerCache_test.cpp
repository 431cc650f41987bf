#include "server/AnswerCache.h"

#include <gmock/gmock.h>

namespace reportd {
namespace {

KeptAnswer OfSize(std::size_t size) { return {.body = std::make_shared<const std::string>(size, 'x')}; }

std::string Found(CAnswerCache& cache, const std::vector<std::string>& keys)
{
    std::string found;
    for (const std::string& key : keys) {
        found += cache.Find(key) != nullptr ? key : "-";
    }
    return found;
}

TEST(AnswerCache, FindsWhatItKeeps)
{
    CAnswerCache cache(2, 80);
    EXPECT_EQ(cache.Find("a"), nullptr);
    cache.Keep("a", OfSize(3));
    ASSERT_NE(cache.Find("a"), nullptr);
    EXPECT_EQ(cache.Find("a")->body->size(), 3U);
    cache.Keep("a", OfSize(5));
    EXPECT_EQ(cache.Find("a")->body->size(), 5U);
}

TEST(AnswerCache, DropsWhatWasNotAskedForLongest)
{
    CAnswerCache cache(3, 1000);
    for (const char* const key : {"a", "b", "c"}) {
        cache.Keep(key, OfSize(1));
    }
    EXPECT_NE(cache.Find("a"), nullptr);
    cache.Keep("d", OfSize(1));
    EXPECT_EQ(Found(cache, {"a", "b", "c", "d"}), "a-cd");
}

TEST(AnswerCache, KeepsNoMoreBytesThanItMay)
{
    CAnswerCache cache(100, 80);
    cache.Keep("a", OfSize(10));
    for (int i = 0; i < 7; ++i) {
        cache.Keep("b" + std::to_string(i), OfSize(10));
    }
    EXPECT_NE(cache.Find("a"), nullptr); // 80 bytes
    cache.Keep("c", OfSize(1));
    EXPECT_EQ(Found(cache, {"a", "b0", "b1", "c"}), "a-b1c");
    cache.Keep("c", OfSize(10)); // in the place of the first one: 80 bytes again
    EXPECT_EQ(Found(cache, {"a", "b1", "b2", "c"}), "ab1b2c");
}

TEST(AnswerCache, KeepsNoneThatWouldTakeTheRoomOfMany)
{
    CAnswerCache cache(100, 80);
    cache.Keep("a", OfSize(10));
    cache.Keep("a", OfSize(11)); // and not the older one either
    EXPECT_EQ(cache.Find("a"), nullptr);
}

} // namespace
} // namespace reportd
