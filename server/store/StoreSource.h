// Live data: the figures of the store.
#pragma once

#include "server/store/FigureStore.h"

namespace reportd {

// Reads what the poller, or an import by another process, has stored. Every question is answered from the file, so a
// new figure is seen as soon as it is committed. The operations are those of CFigureStore and fail in the same way; for
// a company that the catalogue does not have there is nothing. now does not matter: the store keeps no figure of the
// future that was not published.
class CStoreSource : public CFigureSource {
public:
    // file: a store that exists; it is opened for reading only. Throws std::runtime_error when that cannot be done.
    explicit CStoreSource(const std::filesystem::path& file);

    std::string_view Name() const override { return "live"; }
    std::vector<ReportRecord> Read(int siteNumber, Series series, std::chrono::year_month_day date, LocalTime now,
                                   std::optional<LocalTime> asOf) override;
    DayState State(int siteNumber, std::chrono::year_month_day date, LocalTime now) override;
    std::optional<LocalTime> Newest(int siteNumber, Series series) override;
    bool IsReady() override;

private:
    CFigureStore m_store;
};

} // namespace reportd
