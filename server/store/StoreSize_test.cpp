// How much room the figures need.
#include "testing/store/FaultyDisk.h"
#include "testing/store/StoreTest.h"

#include <random>

namespace reportd {
namespace {

// The files of five companies as they are renewed every 5 minutes, with values of the usual size: instant usage, solar
// generation, actual usage of the hour that has ended; every four hours new estimates and supply of the hours to come
// and new peaks.
class CYear {
public:
    explicit CYear(CFigureStore& store) : m_store(store) {}

    // Everything that is published on the day of this number. Returns how many figures were kept.
    std::size_t AppendDay(int number)
    {
        std::size_t count = 0;
        const std::chrono::local_days day = kDay + days(number);
        for (int poll = 0; poll < 288; ++poll) {
            for (const int site : {2, 3, 5, 6, 9}) {
                const LocalTime published = day + minutes(5 * poll);
                count += m_store.Append(site, std::chrono::year_month_day(day), File(day, poll), published,
                                        published + std::chrono::seconds(10 + m_random() % 240));
            }
        }
        return count;
    }

private:
    // Never the same as the one before.
    std::uint64_t Value() { return 10000 + ++m_values * 7 % 4000 * 10; }

    std::vector<Figure> File(std::chrono::local_days day, int poll)
    {
        const LocalTime now = day + minutes(5 * poll);
        std::vector<Figure> figures{MakeFigure(Series::kInstantUsage, now, Value()),
                                    MakeFigure(Series::kSolar, now, poll > 60 && poll < 220 ? Value() : 0)};
        if (poll % 12 == 1 && poll > 12) {
            figures.push_back(MakeFigure(Series::kActualUsage, std::chrono::floor<hours>(now) - hours(1), Value()));
        }
        if (poll % 48 == 0) {
            for (LocalTime hour = now; hour < day + days(1); hour += hours(1)) {
                figures.push_back(MakeFigure(Series::kEstimatedUsage, hour, Value()));
                figures.push_back(MakeFigure(Series::kSupply, hour, Value()));
            }
            figures.push_back(MakeFigure(Series::kPeakDemand, day + hours(18), Value()));
            figures.push_back(MakeFigure(Series::kPeakSupply, day + hours(18), Value()));
        }
        return figures;
    }

    CFigureStore& m_store;
    std::mt19937 m_random{1};
    std::uint64_t m_values = 0;
};

class StoreSize : public StoreTest {};

TEST_F(StoreSize, IsSomeTwentyMegabytesAYear)
{
    constexpr int kDays = 6;
    testing_support::CFaultyDisk disk; // does not wait for the real one
    auto store = OpenStore();
    CYear year(*store);
    std::size_t figures = 0;
    for (int day = 0; day < kDays; ++day) {
        figures += year.AppendDay(day);
    }
    store.reset();
    const std::uintmax_t bytes = std::filesystem::file_size(File());
    const std::uintmax_t megabytesAYear = bytes * 365 / kDays / 1'000'000;
    std::cout << figures << " figures in " << bytes << " bytes, " << megabytesAYear << " MB a year\n";
    EXPECT_EQ(figures, std::size_t{kDays} * 5 * (2 * 288 + 23 + 2 * (24 + 20 + 16 + 12 + 8 + 4) + 2 * 6));
    EXPECT_LE(megabytesAYear, 26U);
}

} // namespace
} // namespace reportd
