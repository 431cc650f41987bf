// An update pass as the documentation has it: its days, its requests in their order, and the files that come of them.
#pragma once

#include "testing/simulation/Replies.h"

namespace simulation {

// The path of a data file.
CString DataFilePath(const TestCompany& company, const TestKind& kind);

struct PassState {
    enum class Step {
        kLookup,   // the settings of the next site, kind and day are to be looked up
        kRequest,  // has to send the request
        kDownload, // gets the answer
        kWrite,    // has to open the file
        kWriting,
    };

    std::vector<UtcMs> days = {}; // empty until the pass begins
    LocalMs lower = 0;            // the period that is kept
    LocalMs upper = 0;
    std::size_t turn = 0; // counts the kinds of all companies
    std::size_t day = 0;
    Step step = Step::kLookup;
    std::string target = {}; // of the request
    Reply reply = {};        // its answer
    std::int64_t downloadEndsMs = 0;
    std::optional<Records> merged = {}; // of the days so far; empty when no day gave any
    std::vector<BYTE> expected = {};    // content of the file that is being written

    // The clock is read when the first site is looked up.
    void Begin(const CZone& zone, UtcMs now);
    bool HasBegun() const { return !days.empty(); }
    bool IsOver() const { return turn == std::size(kTestCompanies) * std::size(kTestKinds); }
    // Whose turn it is, unless the pass is over.
    const TestCompany& CompanyInTurn() const { return kTestCompanies[turn / std::size(kTestKinds)]; }
    const TestKind& KindInTurn() const { return kTestKinds[turn % std::size(kTestKinds)]; }
    SYSTEMTIME Day(const CZone& zone) const { return CalendarOf(zone.ToLocal(days.at(day))); }
    CString Path() const { return DataFilePath(CompanyInTurn(), KindInTurn()); }
    std::vector<BYTE> File(const SYSTEMTIME& writeTime) const;

    // The request is wanted.
    void ExpectRequest(const CZone& zone);
    // Goes on with the next day. records: the ended day's, empty when there are none. heldPath: a file that cannot be
    // opened; its kind is passed over.
    void EndDay(const std::optional<Records>& records, const CString& heldPath);
    void EndKind();
};

} // namespace simulation
