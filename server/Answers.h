// Which request gets which answer, from whatever source the figures come.
#pragma once

#include "server/FigureSource.h"
#include "server/PollStatistics.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace reportd {

// What the answer depends on. The texts belong to the caller.
struct WebRequest {
    std::string_view method = {};         // as on the wire: "GET"
    std::string_view target = {};         // as on the wire, not decoded: path and query; "http://SERVER" may precede
    std::string_view ifNoneMatch = {};    // values of these header fields; empty: there is no such field
    std::string_view acceptLanguage = {}; //
    std::string_view accept = {};         //
};

class CUnfinishedAnswer;

// An answer without what belongs to the connection and to the moment it is sent at: Date, Connection, Content-Length.
struct WebAnswer {
    unsigned status = 404;                              // HTTP status code
    std::string_view contentType = {};                  // of a constant; empty when there is no body
    std::shared_ptr<const std::string> body = {};       // shared with other answers; null: empty
    std::shared_ptr<const std::string> fields = {};     // further header lines, each with its "\r\n"; null: none
    std::optional<std::chrono::seconds> age = {};       // value of the header field Age; none: no such field
    std::unique_ptr<CUnfinishedAnswer> unfinished = {}; // when it is set, all else is meaningless: see there
};

// An answer so large that it is made in steps, so that other requests can be answered between them. It must not outlive
// the CAnswers that it came from, and is used by the same thread.
class CUnfinishedAnswer {
public:
    CUnfinishedAnswer() = default;
    virtual ~CUnfinishedAnswer() = default;
    CUnfinishedAnswer(const CUnfinishedAnswer&) = delete;
    CUnfinishedAnswer& operator=(const CUnfinishedAnswer&) = delete;

    // Takes the next step. None while there are more to take; then the answer, which is finished.
    virtual std::optional<WebAnswer> Continue() = 0;
};

struct AnswerSettings {
    std::chrono::minutes staleAfter{15}; // a day of now or later that was not observed for longer is answered with Age
    std::chrono::minutes noneAfter{720}; // for longer than this: not at all (503)
};

// Answers the requests of one server; used by one thread at a time. It keeps rendered answers until their figures
// change, and looks for a change when the clock's second has: a new figure is answered within a second.
class CAnswers {
public:
    // One line of text without its end.
    using Log = std::function<void(const std::string&)>;

    // source and statistics must live as long as this object; statistics: null when nothing is polled. log: told when
    // the source fails; null: nobody.
    CAnswers(CFigureSource& source, const CPollStatistics* statistics, const AnswerSettings& settings, Log log = {});
    ~CAnswers();
    CAnswers(const CAnswers&) = delete;
    CAnswers& operator=(const CAnswers&) = delete;

    // now: the time at the companies. docs/openapi.yaml lists the targets and their answers. Throws nothing but
    // std::bad_alloc: a source that fails is answered with 503.
    WebAnswer Answer(const WebRequest& request, LocalTime now);

    // Name() of the source.
    std::string_view SourceName() const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace reportd
