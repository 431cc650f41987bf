#include "server/live/Backfill.h"

#include "server/live/Advice.h"
#include "server/live/Archive.h"
#include "server/live/Intake.h"
#include "server/live/Wording.h"
#include "server/retrieval/Fetcher.h"
#include "server/retrieval/UrlPattern.h"
#include "server/store/FigureStore.h"
#include "server/TimeText.h"

#include <algorithm>
#include <deque>
#include <ostream>
#include <set>

namespace reportd {
namespace {

constexpr unsigned kMostFailures = 3; // in a row
constexpr std::size_t kHoursOfDay = 24;

// A company on its way through its days.
struct Course {
    int siteNumber;
    const CompanySettings* settings;
    std::deque<year_month_day> days; // still to be had, in order
    unsigned failures = 0;           // in a row
    unsigned restingRounds = 0;      // to be left out, as its server wishes
};

bool IsArchive(const CompanySettings& company) { return company.pastUrl.ends_with(".zip"); }

} // namespace

struct CBackfill::Impl {
    const LiveSettings& settings;
    CFigureStore& store;
    CFetcher& fetcher;
    std::function<LocalTime()> clock;
    Wait wait;
    std::ostream& out;
    bool isGood = true;
    bool isStopped = false;

    std::vector<Course> MakeCourses(year_month_day first, year_month_day last);
    bool HasDay(int siteNumber, year_month_day date);
    void Ask(Course* course, std::chrono::seconds pause);
    void TakeCsv(Course* course, const std::string& bytes);
    void TakeArchive(Course* course, const std::string& bytes);
    bool TakeDay(const Course& course, year_month_day date, const std::string& bytes);
    void Fail(Course* course, year_month_day date, const std::string& why);
    void GiveUp(Course* course, const std::string& why);
    std::ostream& Say(const Course& course, year_month_day date);
};

std::vector<Course> CBackfill::Impl::MakeCourses(year_month_day first, year_month_day last)
{
    std::vector<Course> courses;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        const CompanySettings& companySettings = settings.companies.at(company.siteNumber);
        if (!companySettings.isEnabled || companySettings.pastUrl.empty()) {
            out << company.key.Narrow()
                << ": left out: " << (companySettings.isEnabled ? "has no past_url" : "is not enabled") << std::endl;
            continue;
        }
        Course course{company.siteNumber, &companySettings, {}};
        for (auto day = std::chrono::local_days(first); day <= std::chrono::local_days(last);
             day += std::chrono::days(1)) {
            if (HasDay(company.siteNumber, year_month_day{day})) {
                Say(course, year_month_day{day}) << "complete already" << std::endl;
            } else {
                course.days.emplace_back(day);
            }
        }
        courses.push_back(std::move(course));
    }
    return courses;
}

bool CBackfill::Impl::HasDay(int siteNumber, year_month_day date)
{
    return store.Read(siteNumber, Series::kActualUsage, date, std::nullopt).size() == kHoursOfDay;
}

// Sends the request for the first day of a course.
void CBackfill::Impl::Ask(Course* course, std::chrono::seconds pause)
{
    const year_month_day date = course->days.front();
    FetchRequest request;
    request.url = UrlOfDay(course->settings->pastUrl, date);
    request.agent = course->settings->agent;
    request.authorityFile = settings.authorityFile;
    const FetchAnswer answer = fetcher.Fetch(request);
    if (answer.failure == "interrupted") {
        isStopped = true;
        return;
    }
    if (const std::optional<std::string> problem = ProblemOf(answer)) {
        Fail(course, date, *problem);
        if (answer.retryAfter.value_or(std::chrono::seconds(0)) >= kLongestServerDelay) {
            GiveUp(course, "its server asks for an hour of patience or more");
        }
        course->restingRounds = static_cast<unsigned>(answer.retryAfter.value_or(std::chrono::seconds(0)) / pause);
        return;
    }
    if (IsArchive(*course->settings)) {
        TakeArchive(course, answer.body);
    } else {
        TakeCsv(course, answer.body);
    }
}

void CBackfill::Impl::TakeCsv(Course* course, const std::string& bytes)
{
    const year_month_day date = course->days.front();
    if (TakeDay(*course, date, bytes)) {
        course->days.pop_front();
        course->failures = 0;
    } else {
        Fail(course, date, "");
    }
}

// Takes all days of the course that the archive has. Those that its address stands for are done then, had or not.
void CBackfill::Impl::TakeArchive(Course* course, const std::string& bytes)
{
    const year_month_day asked = course->days.front();
    const std::string url = UrlOfDay(course->settings->pastUrl, asked);
    std::set<year_month_day> taken;
    try {
        ReadZip(bytes, [&](const ArchiveMember& member) {
            const std::optional<year_month_day> date = DayOfName(member.name);
            if (date && std::find(course->days.begin(), course->days.end(), *date) != course->days.end() &&
                member.fault.empty() && TakeDay(*course, *date, member.bytes)) {
                taken.insert(*date);
            }
        });
    } catch (const CArchiveError& error) {
        Fail(course, asked, std::string("the archive is not readable: ") + error.what());
        return;
    }
    course->failures = taken.empty() ? course->failures + 1 : 0;
    std::erase_if(course->days, [&](year_month_day date) {
        if (UrlOfDay(course->settings->pastUrl, date) != url) {
            return false;
        }
        if (!taken.contains(date)) {
            Say(*course, date) << "failed: not in the archive, or refused" << std::endl;
            isGood = false;
        }
        return true;
    });
}

// False, and a line, when it is refused.
bool CBackfill::Impl::TakeDay(const Course& course, year_month_day date, const std::string& bytes)
{
    try {
        const Intake intake = TakeSavedFile(store, course.siteNumber, *course.settings, bytes, date, clock());
        Say(course, date) << intake.appended << " figures added" << std::endl;
        return true;
    } catch (const CRefusedFile& error) {
        Say(course, date) << "refused: " << error.what() << std::endl;
        return false;
    }
}

// Leaves out the day that was asked for, with those that have the same address. why: empty when that has been said.
void CBackfill::Impl::Fail(Course* course, year_month_day date, const std::string& why)
{
    isGood = false;
    const std::string url = UrlOfDay(course->settings->pastUrl, date);
    const auto others =
        std::erase_if(course->days,
                      [&](year_month_day other) { return UrlOfDay(course->settings->pastUrl, other) == url; }) -
        1;
    if (!why.empty()) {
        Say(*course, date) << "failed" << (others > 0 ? ", with " + std::to_string(others) + " days more" : "") << ": "
                           << why << std::endl;
    }
    if (++course->failures == kMostFailures) {
        GiveUp(course, "three failures in a row");
    }
}

void CBackfill::Impl::GiveUp(Course* course, const std::string& why)
{
    if (!course->days.empty()) {
        out << KeyOfCompany(course->siteNumber) << ": given up: " << why << std::endl;
        course->days.clear();
        isGood = false;
    }
}

std::ostream& CBackfill::Impl::Say(const Course& course, year_month_day date)
{
    return out << KeyOfCompany(course.siteNumber) << " " << DateText(date) << ": ";
}

CBackfill::CBackfill(const LiveSettings& settings, CFigureStore& store, CFetcher& fetcher,
                     std::function<LocalTime()> clock, Wait wait, std::ostream& out)
    : m_impl(new Impl{settings, store, fetcher, std::move(clock), std::move(wait), out})
{
}

CBackfill::~CBackfill() = default;

bool CBackfill::Run(year_month_day first, year_month_day last, std::chrono::seconds pause)
{
    std::vector<Course> courses = m_impl->MakeCourses(first, last);
    const auto hasDays = [](const Course& course) { return !course.days.empty(); };
    bool isFirstRound = true;
    while (!m_impl->isStopped && std::any_of(courses.begin(), courses.end(), hasDays)) {
        if (!isFirstRound && !m_impl->wait(pause)) {
            m_impl->isStopped = true;
            break;
        }
        isFirstRound = false;
        for (Course& course : courses) {
            if (course.restingRounds > 0) {
                --course.restingRounds;
            } else if (hasDays(course) && !m_impl->isStopped) {
                m_impl->Ask(&course, pause);
            }
        }
    }
    if (m_impl->isStopped) {
        m_impl->out << "stopped; the same command goes on from here" << std::endl;
    }
    return m_impl->isGood && !m_impl->isStopped;
}

} // namespace reportd
