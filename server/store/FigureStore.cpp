#include "server/store/FigureStore.h"

#include "server/FileStamp.h"
#include "server/JapanTime.h"
#include "server/store/StoreSession.h"

#include <limits>

namespace reportd {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kMostNames = 100;

void MakeFolder(const fs::path& folder)
{
    std::error_code error;
    if (fs::create_directories(folder, error)) {
        fs::permissions(folder, fs::perms::owner_all, error);
    }
    if (error) {
        throw std::runtime_error("the folder " + folder.string() + " cannot be made: " + error.message());
    }
}

// A name that is not taken for a file that is set aside now.
fs::path NameForDamaged(const fs::path& file)
{
    const std::string name = file.string() + ".damaged-" + FileStamp(ReadJapanClock());
    for (unsigned number = 1; number < kMostNames; ++number) {
        fs::path path = number == 1 ? name : name + "-" + std::to_string(number);
        if (!fs::exists(path)) {
            return path;
        }
    }
    throw std::runtime_error("no name is left to set aside " + file.string());
}

// The write-ahead log first: without it the file is still a database, but a log without its file is worth nothing.
void Rename(const fs::path& file, const fs::path& aside)
{
    for (const char* const ending : {"-wal", "-shm", ""}) {
        const fs::path from = file.string() + ending;
        std::error_code error;
        if (fs::exists(from)) {
            fs::rename(from, aside.string() + ending, error);
        }
        if (error) {
            throw std::runtime_error("the damaged store " + from.string() + " cannot be set aside: " + error.message());
        }
    }
}

} // namespace

struct CFigureStore::Impl {
    fs::path file;
    bool mayWrite = false;
    std::function<void(const std::string&)> report;
    std::unique_ptr<CStoreSession> session; // none: to be opened by the next operation

    void Tell(const std::string& text) const
    {
        if (report) {
            report(text);
        }
    }

    CStoreSession& Session()
    {
        if (session && session->HasMoved()) {
            if (mayWrite) {
                Tell("the store " + file.string() + " was moved or deleted; a new one is used");
            }
            session.reset();
        }
        if (!session) {
            session = std::make_unique<CStoreSession>(file, mayWrite);
        }
        return *session;
    }

    void SetAside(const CSqlError& reason)
    {
        if (session) {
            session->KeepAsItIs();
            const bool isDone = session->HasMoved(); // by another process
            session.reset();
            if (isDone) {
                return;
            }
        }
        const fs::path aside = NameForDamaged(file);
        Rename(file, aside);
        Tell(std::string(reason.what()) + "; it was set aside as " + aside.string() + " and a new one is begun");
    }

    // Carries out an operation on the open store; a second time after a damaged file was set aside.
    template <class Operation>
    auto Do(const Operation& operation)
    {
        try {
            return operation(Session());
        } catch (const CSqlError& error) {
            if (!error.IsDamage() && !error.IsInputOutput()) {
                throw;
            }
            if (!error.IsDamage() || !mayWrite) {
                session.reset(); // reopened by the next operation, in case the connection itself is at fault
                throw;
            }
            SetAside(error);
        }
        return operation(Session());
    }
};

CFigureStore::CFigureStore(const std::filesystem::path& file, Access access,
                           std::function<void(const std::string&)> report)
    : m_impl(std::make_unique<Impl>())
{
    m_impl->file = fs::absolute(file);
    m_impl->mayWrite = access == Access::kReadWrite;
    m_impl->report = std::move(report);
    if (m_impl->mayWrite) {
        MakeFolder(m_impl->file.parent_path());
    }
    m_impl->Do([](CStoreSession& session) { session.Touch(); });
}

CFigureStore::~CFigureStore() = default;

std::size_t CFigureStore::Append(int siteNumber, std::chrono::year_month_day date, const std::vector<Figure>& figures,
                                 LocalTime published, LocalTime observed)
{
    const FigureStamp stamp{SecondsOf(published), SecondsOf(observed)};
    return m_impl->Do(
        [&](CStoreSession& session) { return session.Append(siteNumber, local_days(date), figures, stamp); });
}

void CFigureStore::NoteCurrent(int siteNumber, std::chrono::year_month_day date, LocalTime observed)
{
    m_impl->Do([&](CStoreSession& session) { session.NoteCurrent(siteNumber, local_days(date), SecondsOf(observed)); });
}

std::vector<ReportRecord> CFigureStore::Read(int siteNumber, Series series, std::chrono::year_month_day date,
                                             std::optional<LocalTime> asOf)
{
    const std::int64_t until = asOf ? SecondsOf(*asOf) : std::numeric_limits<std::int64_t>::max();
    return m_impl->Do(
        [&](CStoreSession& session) { return session.Read(siteNumber, series, local_days(date), until); });
}

DayState CFigureStore::State(int siteNumber, std::chrono::year_month_day date)
{
    return m_impl->Do([&](CStoreSession& session) { return session.State(siteNumber, local_days(date)); });
}

std::optional<LocalTime> CFigureStore::Newest(int siteNumber, Series series)
{
    return m_impl->Do([&](CStoreSession& session) -> std::optional<LocalTime> {
        const std::optional<local_days> day = session.NewestDay(siteNumber, series);
        if (!day) {
            return {};
        }
        const std::vector<ReportRecord> records =
            session.Read(siteNumber, series, *day, std::numeric_limits<std::int64_t>::max());
        return records.empty() ? std::nullopt : std::optional(records.back().start);
    });
}

PollState CFigureStore::LoadPollState(int siteNumber)
{
    return m_impl->Do([&](CStoreSession& session) { return session.LoadPollState(siteNumber); });
}

void CFigureStore::SavePollState(int siteNumber, const PollState& state)
{
    m_impl->Do([&](CStoreSession& session) { session.SavePollState(siteNumber, state); });
}

void CFigureStore::Trim(std::chrono::year_month_day firstKept)
{
    const auto trimSome = [&](CStoreSession& session) { return session.TrimSome(local_days(firstKept)); };
    while (m_impl->Do(trimSome)) {
    }
}

bool CFigureStore::IsReady() noexcept
{
    try {
        m_impl->Do([](CStoreSession& session) { session.Touch(); });
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace reportd
