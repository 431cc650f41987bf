// Which figures of a file are news: the rules that CFigureStore promises, apart from the database.
#pragma once

#include "server/store/FigureTables.h"

#include <map>
#include <tuple>
#include <utility>
#include <vector>

namespace reportd {

// When a value was published and seen, in Unix seconds. Of two values the one with the greater stamp is the later one.
struct FigureStamp {
    std::int64_t published = 0;
    std::int64_t observed = 0;

    bool operator<(const FigureStamp& other) const
    {
        return std::tie(published, observed) < std::tie(other.published, other.observed);
    }
};

// A row of a table of figures.
struct FigureRow {
    std::size_t table = 0; // in kFigureTables
    std::int64_t slot = 0;
    FigureStamp stamp;
    RowValues values;
};

// The day of a figure. Throws std::invalid_argument for one that is at no interval of its series and for a value that
// does not fit into 63 bits.
std::chrono::local_days CheckedDayOf(const Figure& figure);

// The figures of one company's day. Plain values; one thread at a time.
class CDayFigures {
public:
    // Knows what a row of the store says, in any order.
    void Know(const FigureRow& row);

    // Takes a figure of that day from a file; CheckedDayOf must have passed it. onlyGaps: it must not replace a value
    // that is known.
    void Take(const Figure& figure, const FigureStamp& stamp, bool onlyGaps);

    // The rows that the store lacks after all figures were taken.
    std::vector<FigureRow> NewRows() const;
    // How many figures these rows hold, and the codes of their series joined by or.
    std::size_t NewCount() const { return m_news.size(); }
    std::uint32_t NewKinds() const;

private:
    using Interval = std::pair<std::size_t, std::int64_t>; // place in kFigurePlaces, slot
    struct Value {
        FigureStamp stamp;
        std::int64_t value = 0;
        std::int64_t minute = 0; // of the start of a peak's hour, else 0
    };

    std::map<Interval, Value> m_latest;
    std::map<Interval, Value> m_news;
};

} // namespace reportd
