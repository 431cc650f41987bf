// What a test asks of the report server's answers, and how it looks at them.
#pragma once

#include "server/Answers.h"

#include <ostream>

namespace reportd {

// For messages of failing tests.
inline void PrintTo(const WebAnswer& answer, std::ostream* stream)
{
    *stream << answer.status << "\n" << (answer.fields ? *answer.fields : "") << (answer.body ? *answer.body : "");
}

} // namespace reportd

namespace testing_support {

inline std::string BodyOf(const reportd::WebAnswer& answer) { return answer.body ? *answer.body : std::string(); }

// The value of a header field of the answer; "-" when it has no such field.
inline std::string FieldOf(const reportd::WebAnswer& answer, const std::string& name)
{
    const std::string lines = "\r\n" + (answer.fields ? *answer.fields : std::string());
    const std::size_t at = lines.find("\r\n" + name + ": ");
    if (at == std::string::npos) {
        return "-";
    }
    const std::size_t start = at + name.size() + 4;
    return lines.substr(start, lines.find("\r\n", start) - start);
}

// The answer, all steps taken.
inline reportd::WebAnswer Finished(reportd::WebAnswer answer)
{
    while (answer.unfinished != nullptr) {
        const std::unique_ptr<reportd::CUnfinishedAnswer> unfinished = std::move(answer.unfinished);
        std::optional<reportd::WebAnswer> next;
        while (!next) {
            next = unfinished->Continue();
        }
        answer = std::move(*next);
    }
    return answer;
}

inline reportd::WebAnswer Get(reportd::CAnswers& answers, std::string_view target, reportd::LocalTime now)
{
    return Finished(answers.Answer({.method = "GET", .target = target}, now));
}

} // namespace testing_support
