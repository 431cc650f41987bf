// A strict reader of metrics.
#pragma once

#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace testing_support {

// Checks one text by the rules of Prometheus's text format 0.0.4, with whole numbers as values.
class CMetricsCheck {
public:
    // What is wrong; empty when nothing is.
    std::string Check(const std::string& text)
    {
        if (!text.ends_with('\n')) {
            return "no line end at the end";
        }
        std::istringstream lines(text);
        std::string line;
        while (std::getline(lines, line)) {
            if (const std::string fault = CheckLine(line); !fault.empty()) {
                return fault + ": " + line;
            }
        }
        return {};
    }

private:
    std::string CheckLine(const std::string& line)
    {
        static const std::regex kHelp("# HELP ([a-zA-Z_:][a-zA-Z0-9_:]*) [^\\\\\n]+");
        static const std::regex kType("# TYPE ([a-zA-Z_:][a-zA-Z0-9_:]*) (counter|gauge)");
        static const std::regex kSample(
            "([a-zA-Z_:][a-zA-Z0-9_:]*)(\\{[a-z]+=\"[^\"\\\\\n]*\"(,[a-z]+=\"[^\"\\\\\n]*\")*\\})? (-?[0-9]+)");
        std::smatch match;
        if (std::regex_match(line, match, kHelp)) {
            m_helped = match[1];
            return m_metrics.insert(m_helped).second ? "" : "a second HELP";
        }
        if (std::regex_match(line, match, kType)) {
            m_typed = match[1];
            m_isCounter = match[2] == "counter";
            return m_typed == m_helped ? "" : "TYPE without HELP";
        }
        if (!std::regex_match(line, match, kSample)) {
            return "no sample";
        }
        if (match[1] != m_typed) {
            return "sample of another metric than TYPE's";
        }
        if (m_typed.ends_with("_total") != m_isCounter) {
            return "counters, and no others, end in _total";
        }
        if (m_isCounter && match[4].str().starts_with('-')) {
            return "a negative counter";
        }
        return m_series.insert(line.substr(0, line.rfind(' '))).second ? "" : "a second sample";
    }

    std::string m_helped;
    std::string m_typed;
    bool m_isCounter = false;
    std::set<std::string> m_metrics;
    std::set<std::string> m_series;
};

} // namespace testing_support
