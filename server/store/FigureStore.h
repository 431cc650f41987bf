// The store: every figure that was ever taken from the companies' files, when it was published and when we saw it, and
// what the poller must remember. One SQLite file; its tables are described in Schema.cpp.
//
// What is known of a day: its file says something new every few minutes, and a figure is kept when it is the first of
// its interval or differs from the latest one. The latest is the one with the newest stamp of the publisher, and of the
// same stamp the one that came last. A file whose stamp is older than the newest one of that day brings figures for
// intervals that have none, and changes no other. The same holds for a file of another day (that of the day before has
// tomorrow's peaks) once a file of the day itself has been taken.
//
// Moments of observation are what the host's clock said. They decide what was known at a moment, and nothing else: a
// clock that jumps back loses no figure.
#pragma once

#include "server/FigureSource.h"
#include "server/store/PollState.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace reportd {

// An object is used by one thread at a time. Several objects, of one process or of more, may use one file: each sees at
// once what another has committed, reading never waits for writing, and writers wait for each other.
//
// Every operation but IsReady throws std::runtime_error, which names the file and says why, when the file cannot be
// read or written (full disk, missing rights, locked for more than 10 seconds). What was to be written is then not
// written at all (or, if the system failed in the last step, as a whole), nothing that was written before is lost, and
// the next operation tries again. An object that writes
// does not throw for a damaged file: it sets it aside and goes on with a new one. A file that was replaced or deleted
// by somebody else is noticed at the next operation, which uses what is there then.
//
// siteNumber: as in the catalogue. Dates must be days of the calendar between the years 1970 and 9999.
class CFigureStore {
public:
    enum class Access { kReadWrite, kReadOnly };

    // Opens the file. kReadWrite: makes it, and its folder (mode 0700), when they do not exist, brings an older schema
    // up to date, and sets a damaged file aside, with its -wal and -shm, as NAME.damaged-YYYYMMDD-HHMMSS (Japan's time;
    // a number follows when that name is taken) to begin a new one. kReadOnly: changes nothing; a file that does not
    // exist or is damaged cannot be opened.
    // report: called with one sentence, without line end, for each file that was set aside or removed, during every
    // operation; may be empty.
    // Throws std::runtime_error for a file that is not such a store or was written by a newer version, which is then
    // left as it is, and when it cannot be opened.
    CFigureStore(const std::filesystem::path& file, Access access, std::function<void(const std::string&)> report);
    ~CFigureStore();
    CFigureStore(const CFigureStore&) = delete;
    CFigureStore& operator=(const CFigureStore&) = delete;

    // Keeps what a file says, by the rules above, in one transaction: afterwards all of it is on the disk, or none.
    // date: the day that the file is of. figures: each at an interval of its series (peaks: any hour that starts at a
    // full minute), of that day or of others, in any order; of two for the same interval the later one counts. May be
    // empty: then the store knows that there was a file. published: the publisher's stamp; observed: when it was
    // fetched. Returns how many figures were kept. Throws std::invalid_argument, and keeps nothing, for a figure that
    // is at no interval of its series and for a value above 2^63 - 1.
    std::size_t Append(int siteNumber, std::chrono::year_month_day date, const std::vector<Figure>& figures,
                       LocalTime published, LocalTime observed);

    // The file of this day was found unchanged. Whatever it said last, of its day or of the next, was observed now. No
    // effect when nothing of that day is known.
    void NoteCurrent(int siteNumber, std::chrono::year_month_day date, LocalTime observed);

    // The latest record of each interval of a day in order of time; with asOf: the latest one of those that had been
    // observed by then. Empty when there is none.
    std::vector<ReportRecord> Read(int siteNumber, Series series, std::chrono::year_month_day date,
                                   std::optional<LocalTime> asOf);

    // What is known of a day. The revision is 0 while there is no figure of that day, changes with each Append that
    // keeps one, and is unlikely (1 in 2^40) to come again after the day was trimmed or the file set aside. Costs one
    // look into an index. Read it before the figures that it is to stand for.
    DayState State(int siteNumber, std::chrono::year_month_day date);

    // Start of the latest interval of the newest day that has a value of this series; none when there is none.
    std::optional<LocalTime> Newest(int siteNumber, Series series);

    // Default values for a company of which nothing was saved. Texts may hold any bytes, 1 MiB at most together.
    PollState LoadPollState(int siteNumber);
    void SavePollState(int siteNumber, const PollState& state);

    // Deletes all figures of days before this one, a few days a transaction, so that no other writer waits long. The
    // file does not shrink; new figures use the room.
    void Trim(std::chrono::year_month_day firstKept);

    // Whether the file can be read: reads from it.
    bool IsReady() noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
