#include "server/Answers.h"

#include "server/AnswerCache.h"
#include "server/AnswerParts.h"
#include "server/Metrics.h"
#include "server/page/Page.h"
#include "server/ReportDocument.h"
#include "server/Routes.h"
#include "server/SeriesDocument.h"
#include "server/TimeText.h"

namespace reportd {
namespace {

constexpr std::size_t kMaxKeptAnswers = 512;
constexpr std::size_t kMaxKeptBytes = std::size_t{16} << 20;
constexpr std::chrono::seconds kLogPause{60};

// How long after its end a day still changes: its last file comes after midnight.
constexpr std::chrono::hours kClosingTime{2};

// A range of more days is answered in steps of so many, and only so many such answers exist at a time.
constexpr days kDaysAtOnce{31};
constexpr int kDaysPerStep = 8;
constexpr long kMaxLargeAnswers = 4;

constexpr std::string_view kXmlType = "application/xml; charset=utf-8";
constexpr std::string_view kJsonType = "application/json";
constexpr std::string_view kCsvType = "text/csv; charset=utf-8; header=present";
constexpr std::string_view kTextType = "text/plain; charset=utf-8";
constexpr std::string_view kPageType = "text/html; charset=utf-8";
constexpr std::string_view kStyleType = "text/css; charset=utf-8";
constexpr std::string_view kScriptType = "text/javascript; charset=utf-8";

constexpr std::string_view kAskAgain = "Cache-Control: no-cache\r\n";
constexpr std::string_view kKeptAMinute =
    "Cache-Control: max-age=60, stale-while-revalidate=60, stale-if-error=600\r\n";
constexpr std::string_view kKeptAnHour = "Cache-Control: max-age=3600\r\n";

const catalogue::Company* CompanyOf(std::string_view key)
{
    const auto* const found =
        std::find_if(catalogue::kCompanies.begin(), catalogue::kCompanies.end(),
                     [key](const catalogue::Company& company) { return company.key.Narrow() == key; });
    return found == catalogue::kCompanies.end() ? nullptr : found;
}

// The day of "date=YYYY-MM-DD&output=xml", which is the whole query of a report.
std::optional<year_month_day> ReportDay(std::string_view query)
{
    constexpr std::string_view kStart = "date=";
    constexpr std::string_view kEnd = "&output=xml";
    if (!query.starts_with(kStart) || !query.ends_with(kEnd) || query.size() < kStart.size() + kEnd.size()) {
        return {};
    }
    return ParseDate(query.substr(kStart.size(), query.size() - kStart.size() - kEnd.size()));
}

// Name of the file that a table is saved as: our own words and digits only.
std::string FileName(const SeriesRequest& request)
{
    std::string name{request.company->key.Narrow()};
    name.append("-").append(KindOf(request)).append("-").append(DateText(request.from));
    return name.append("-").append(DateText(request.to)).append(".csv");
}

// What is known of some days as a whole.
struct Knowledge {
    Basis basis;
    std::optional<LocalTime> observed; // of the day of now and those after it
};

// An answer and what it may be kept by.
struct Draft {
    std::string_view contentType;
    std::string fields; // header lines beside the ETag's
    std::optional<Knowledge> knowledge = {};
    bool mustBeFresh = false; // not to be answered when it was not observed for long
};

KeptAnswer MakeKept(const Draft& draft, std::shared_ptr<const std::string> body, LocalTime now)
{
    KeptAnswer kept{.contentType = draft.contentType, .body = std::move(body), .lookedAt = now};
    kept.etag = ETagOf(*kept.body);
    kept.fields = Share(draft.fields + "ETag: " + kept.etag + "\r\nX-Content-Type-Options: nosniff\r\n");
    kept.mustBeFresh = draft.mustBeFresh;
    if (draft.knowledge) {
        kept.basis = draft.knowledge->basis;
        kept.observed = draft.knowledge->observed;
    }
    return kept;
}

// The parameters of a page; none when there is another one, one twice, or a malformed query.
struct PageParameters {
    std::string date = {};
    std::string language = {};
};

std::optional<PageParameters> ParsePageParameters(const Route& route, std::string_view query)
{
    const std::optional<Parameters> parameters = ParseQuery(query);
    if (!parameters) {
        return {};
    }
    PageParameters page;
    for (const auto& [name, value] : *parameters) {
        const bool isKnown =
            std::find(route.parameters.begin(), route.parameters.end(), name) != route.parameters.end();
        std::string& place = name == "date" ? page.date : page.language;
        if (!isKnown || name.empty() || !place.empty()) {
            return {};
        }
        place = value;
    }
    return page;
}

} // namespace

struct CAnswers::Impl {
    class CLargeAnswer;

    // What every part of an answer needs.
    struct Question {
        const WebRequest& request;
        std::string_view target; // without the server
        std::string_view query;
        RouteMatch match;
        LocalTime now;
    };

    Impl(CFigureSource& figureSource, const CPollStatistics* pollStatistics, const AnswerSettings& answerSettings,
         Log answerLog)
        : source(figureSource), statistics(pollStatistics), settings(answerSettings), log(std::move(answerLog))
    {
    }

    WebAnswer Answer(const WebRequest& request, LocalTime now);
    WebAnswer AnswerRoute(const Question& question);
    WebAnswer AnswerReport(const Question& question, std::string_view category);
    WebAnswer AnswerSeries(const Question& question);
    WebAnswer AnswerSeriesInSteps(const Question& question, const SeriesRequest& request, const Draft& draft);
    WebAnswer AnswerCompanies(const Question& question);
    WebAnswer AnswerPlain(const Question& question);
    WebAnswer AnswerPage(const Question& question);
    WebAnswer AnswerUnreadable(const Route& route, LocalTime now, const std::string& why);

    Knowledge Look(int siteNumber, year_month_day from, year_month_day to, LocalTime now);
    std::string FreshnessFields(const Knowledge& knowledge) const;

    template <typename Render> // returns the body
    WebAnswer Serve(const Question& question, std::string_view key, const Draft& draft, Render render);
    WebAnswer Finish(const KeptAnswer& kept, const WebRequest& request, LocalTime now) const;

    CFigureSource& source;
    const CPollStatistics* const statistics;
    const AnswerSettings settings;
    const Log log;
    std::optional<LocalTime> loggedAt = {};
    CAnswerCache cache{kMaxKeptAnswers, kMaxKeptBytes};
    const std::shared_ptr<const char> largeAnswers = std::make_shared<const char>(); // shared by those that there are
};

// A range of days, some of which each step writes.
class CAnswers::Impl::CLargeAnswer : public CUnfinishedAnswer {
public:
    CLargeAnswer(Impl& answers, const SeriesRequest& request, const Draft& draft, const Question& question)
        : m_answers(answers), m_place(answers.largeAnswers), m_draft(draft), m_route(*question.match.route),
          m_ifNoneMatch(question.request.ifNoneMatch), m_now(question.now),
          m_writer(answers.source, request, question.now)
    {
    }

    std::optional<WebAnswer> Continue() override
    {
        try {
            for (int day = 0; day < kDaysPerStep; ++day) {
                if (!m_writer.PutDay()) {
                    return Finished();
                }
            }
            return {};
        } catch (const std::runtime_error& error) {
            return m_answers.AnswerUnreadable(m_route, m_now, error.what());
        }
    }

private:
    struct Body {
        std::string text;
        std::shared_ptr<const char> place;
    };

    WebAnswer Finished()
    {
        // The place is free again when nobody sends the body any more.
        const auto body = std::make_shared<const Body>(Body{m_writer.Take(), m_place});
        const KeptAnswer kept = MakeKept(m_draft, {body, &body->text}, m_now);
        return m_answers.Finish(kept, {.ifNoneMatch = m_ifNoneMatch}, m_now);
    }

    Impl& m_answers;
    const std::shared_ptr<const char> m_place;
    const Draft m_draft;
    const Route& m_route;
    const std::string m_ifNoneMatch;
    const LocalTime m_now;
    CSeriesWriter m_writer;
};

WebAnswer CAnswers::Impl::Answer(const WebRequest& request, LocalTime now)
{
    if (request.method != "GET") {
        return PassingAnswer(405, {}, {}, "Allow: GET\r\n");
    }
    const std::string_view target = WithoutServer(request.target);
    const KeptAnswer* const kept = cache.Find(target);
    if (kept != nullptr && kept->lookedAt == now) {
        return Finish(*kept, request, now);
    }
    std::string_view query = target;
    const std::optional<RouteMatch> match = FindRoute(TakeUpTo(query, '?'));
    if (!match) {
        return PassingAnswer(404);
    }
    const Question question{.request = request, .target = target, .query = query, .match = *match, .now = now};
    try {
        return AnswerRoute(question);
    } catch (const CBadRequest& error) {
        return Problem(400, "Bad Request", error.what());
    } catch (const std::runtime_error& error) {
        return AnswerUnreadable(*match->route, now, error.what());
    }
}

WebAnswer CAnswers::Impl::AnswerRoute(const Question& question)
{
    switch (question.match.route->resource) {
    case Resource::kUsageReport:
        return AnswerReport(question, "usage");
    case Resource::kPeakReport:
        return AnswerReport(question, "peak");
    case Resource::kSeries:
        return AnswerSeries(question);
    case Resource::kCompanies:
        return AnswerCompanies(question);
    case Resource::kOverview:
    case Resource::kCompanyPage:
        return AnswerPage(question);
    default:
        return question.query.empty() ? AnswerPlain(question) : PassingAnswer(404);
    }
}

WebAnswer CAnswers::Impl::AnswerReport(const Question& question, std::string_view category)
{
    const catalogue::Company* const company = CompanyOf(question.match.parts[0]);
    const catalogue::Kind* const kind = FindReportKind(category, question.match.parts[1]);
    const std::optional<year_month_day> date = ReportDay(question.query);
    if (company == nullptr || kind == nullptr || !date) {
        return PassingAnswer(404);
    }
    if (*date < kFirstDay) {
        return PassingAnswer(503);
    }
    const Knowledge knowledge = Look(company->siteNumber, *date, *date, question.now);
    const auto render = [&] {
        const std::vector<ReportRecord> records =
            source.Read(company->siteNumber, static_cast<Series>(kind->dataType), *date, question.now, {});
        return records.empty() ? std::string() : ReportDocument(*kind, records);
    };
    return Serve(
        question, question.target,
        {.contentType = kXmlType, .fields = FreshnessFields(knowledge), .knowledge = knowledge, .mustBeFresh = true},
        render);
}

WebAnswer CAnswers::Impl::AnswerSeries(const Question& question)
{
    const std::optional<Parameters> parameters = ParseQuery(question.query);
    if (!parameters) {
        throw CBadRequest("the query has a bad escape");
    }
    const SeriesRequest request = ParseSeriesRequest(*parameters, PrefersTable(question.request.accept));
    Knowledge knowledge = Look(request.company->siteNumber, request.from, request.to, question.now);
    if (request.asOf && *request.asOf <= question.now) {
        knowledge.observed.reset(); // what was known then does not grow old
    }
    Draft draft{.contentType = request.isTable ? kCsvType : kJsonType,
                .fields = FreshnessFields(knowledge) + "Vary: Accept\r\n",
                .knowledge = knowledge};
    if (request.isTable) {
        draft.fields += "Content-Disposition: attachment; filename=\"" + FileName(request) + "\"\r\n";
    }
    if (local_days{request.to} - local_days{request.from} >= kDaysAtOnce) {
        return AnswerSeriesInSteps(question, request, draft);
    }
    const auto render = [&] {
        CSeriesWriter writer(source, request, question.now);
        while (writer.PutDay()) {
        }
        return writer.Take();
    };
    return Serve(question, std::string(request.isTable ? "csv " : "json ").append(question.target), draft, render);
}

WebAnswer CAnswers::Impl::AnswerSeriesInSteps(const Question& question, const SeriesRequest& request,
                                              const Draft& draft)
{
    if (largeAnswers.use_count() > kMaxLargeAnswers) {
        return Problem(503, "Service Unavailable", "too many large ranges at a time", "Retry-After: 1\r\n");
    }
    WebAnswer answer;
    answer.unfinished = std::make_unique<CLargeAnswer>(*this, request, draft, question);
    return answer;
}

WebAnswer CAnswers::Impl::AnswerCompanies(const Question& question)
{
    if (!question.query.empty()) {
        throw CBadRequest("no parameter is known here");
    }
    return Serve(question, question.target, {.contentType = kJsonType, .fields = std::string(kKeptAMinute)},
                 [&] { return CompaniesDocument(source, question.now); });
}

WebAnswer CAnswers::Impl::AnswerPlain(const Question& question)
{
    switch (question.match.route->resource) {
    case Resource::kHealth:
        return PassingAnswer(200, kTextType, "ok\n");
    case Resource::kReadiness:
        return source.IsReady() ? PassingAnswer(200, kTextType, "ready\n")
                                : PassingAnswer(503, kTextType, "the figures cannot be read\n");
    case Resource::kMetrics:
        return PassingAnswer(200, kMetricsType, MetricsDocument(source, statistics));
    case Resource::kStyle:
        return Serve(question, question.target, {.contentType = kStyleType, .fields = std::string(kAskAgain)},
                     [] { return std::string(kPageStyle); });
    default:
        return Serve(question, question.target, {.contentType = kScriptType, .fields = std::string(kAskAgain)},
                     [] { return std::string(kPageScript); });
    }
}

WebAnswer CAnswers::Impl::AnswerPage(const Question& question)
{
    const std::optional<PageParameters> page = ParsePageParameters(*question.match.route, question.query);
    const year_month_day today{std::chrono::floor<days>(question.now)};
    const std::optional<year_month_day> date = !page || page->date.empty() ? today : ParseDate(page->date);
    const bool isOverview = question.match.route->resource == Resource::kOverview;
    const catalogue::Company* const company = CompanyOf(question.match.parts[0]);
    if (!page || !date || *date < kFirstDay || (!isOverview && company == nullptr)) {
        return PassingAnswer(404);
    }
    const Language language = LanguageOf(question.request.acceptLanguage, page->language);
    const Draft draft{.contentType = kPageType,
                      .fields = std::string(kAskAgain)
                                    .append("Vary: Accept-Language\r\nReferrer-Policy: no-referrer\r\n")
                                    .append("Content-Security-Policy: ")
                                    .append(kContentSecurityPolicy)
                                    .append("\r\n")};
    return Serve(question, std::string(CodeOf(language)).append(" ").append(question.target), draft, [&] {
        return isOverview
                   ? OverviewPage(source, question.now, language, settings.staleAfter)
                   : CompanyPage(source, company->siteNumber, *date, question.now, language, settings.staleAfter);
    });
}

WebAnswer CAnswers::Impl::AnswerUnreadable(const Route& route, LocalTime now, const std::string& why)
{
    // A client that asks again and again is not to fill the log.
    if (log && (!loggedAt || now < *loggedAt || now - *loggedAt >= kLogPause)) {
        log("the figures cannot be read: " + why);
        loggedAt = now;
    }
    switch (route.resource) {
    case Resource::kUsageReport:
    case Resource::kPeakReport:
        return PassingAnswer(503);
    case Resource::kSeries:
    case Resource::kCompanies:
        return Problem(503, "Service Unavailable", "the figures cannot be read");
    default:
        return PassingAnswer(503, kTextType, "the figures cannot be read\n");
    }
}

// What is known of these days: one look for each of them, but for ranges so large that they are not kept.
Knowledge CAnswers::Impl::Look(int siteNumber, year_month_day from, year_month_day to, LocalTime now)
{
    const local_days today = std::chrono::floor<days>(now);
    Knowledge knowledge;
    knowledge.basis.isOpen = now < local_days{to} + days{1} + kClosingTime;
    for (local_days day{from}; day <= local_days{to}; day += days{1}) {
        const DayState state = source.State(siteNumber, year_month_day{day}, now);
        // Mixes the revisions so that their order counts; of one day it is that day's.
        knowledge.basis.revision = knowledge.basis.revision * 0x9E3779B97F4A7C15 + state.revision;
        knowledge.basis.published = std::max(knowledge.basis.published, state.published);
        if (day >= today) {
            knowledge.observed = std::max(knowledge.observed, state.observed);
        }
    }
    return knowledge;
}

std::string CAnswers::Impl::FreshnessFields(const Knowledge& knowledge) const
{
    std::string fields{knowledge.basis.isOpen ? kKeptAMinute : kKeptAnHour};
    if (knowledge.basis.published) {
        fields += "X-Ampora-Published: " + JapanTimeText(*knowledge.basis.published) + "\r\n";
    }
    return fields;
}

template <typename Render>
WebAnswer CAnswers::Impl::Serve(const Question& question, std::string_view key, const Draft& draft, Render render)
{
    KeptAnswer* const kept = cache.Find(key);
    if (kept != nullptr &&
        (kept->lookedAt == question.now || (draft.knowledge && kept->basis == draft.knowledge->basis))) {
        kept->lookedAt = question.now;
        if (draft.knowledge) {
            kept->observed = draft.knowledge->observed;
        }
        return Finish(*kept, question.request, question.now);
    }
    std::string body = render();
    if (body.empty()) { // no figures
        return PassingAnswer(503);
    }
    const KeptAnswer made = MakeKept(draft, Share(std::move(body)), question.now);
    cache.Keep(key, made);
    return Finish(made, question.request, question.now);
}

WebAnswer CAnswers::Impl::Finish(const KeptAnswer& kept, const WebRequest& request, LocalTime now) const
{
    WebAnswer answer{.status = 200, .fields = kept.fields};
    if (kept.mustBeFresh && kept.observed && now - *kept.observed > settings.noneAfter) {
        return PassingAnswer(503);
    }
    if (kept.observed && now - *kept.observed > settings.staleAfter) {
        answer.age = now - *kept.observed;
    }
    if (IsNamed(request.ifNoneMatch, kept.etag)) {
        answer.status = 304;
    } else {
        answer.contentType = kept.contentType;
        answer.body = kept.body;
    }
    return answer;
}

CAnswers::CAnswers(CFigureSource& source, const CPollStatistics* statistics, const AnswerSettings& settings, Log log)
    : m_impl(std::make_unique<Impl>(source, statistics, settings, std::move(log)))
{
}

CAnswers::~CAnswers() = default;

WebAnswer CAnswers::Answer(const WebRequest& request, LocalTime now) { return m_impl->Answer(request, now); }

std::string_view CAnswers::SourceName() const { return m_impl->source.Name(); }

} // namespace reportd
