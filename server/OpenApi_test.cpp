// The description of the server's requests (docs/openapi.yaml) against what the server answers.
#include "server/Routes.h"
#include "server/SampleSource.h"
#include "server/SeriesDocument.h"
#include "testing/Answering.h"

#include <gmock/gmock.h>

#include <fstream>
#include <regex>
#include <set>

namespace reportd {
namespace {

using namespace std::chrono_literals;
using testing_support::Get;

constexpr LocalTime kNow = std::chrono::local_days{2012y / 7 / 3} + 12h;

using Names = std::set<std::string>;

// What the file says of one path.
struct Described {
    Names inPath = {};
    Names inQuery = {};
};

// Reads the paths and their parameters: as much of YAML as the file uses for these.
class CDescription {
public:
    CDescription()
    {
        std::ifstream file(AMPORA_OPENAPI);
        EXPECT_TRUE(file.is_open());
        std::string line;
        while (std::getline(file, line)) {
            ReadLine(line);
        }
        for (const auto& [path, key] : m_references) {
            const auto& [name, place] = m_shared.at(key);
            Note(path, name, place);
        }
    }

    const std::map<std::string, Described>& Paths() const { return m_paths; }
    const std::vector<std::string>& Enumerations() const { return m_enumerations; }

private:
    void ReadLine(const std::string& line)
    {
        static const std::regex kPath("  (/.*):");
        static const std::regex kShared("    (\\w+):");
        static const std::regex kName(" +(?:- )?name: (\\w+)");
        static const std::regex kPlace(" +in: (\\w+)");
        static const std::regex kReference(" +- \\$ref: \"#/components/parameters/(\\w+)\"");
        static const std::regex kEnumeration(".*enum: \\[([^\\]]*)\\].*");
        std::smatch match;
        if (!line.empty() && line.front() != ' ') {
            m_path.clear();
        } else if (std::regex_match(line, match, kPath)) {
            m_path = match[1];
            m_paths[m_path];
        } else if (std::regex_match(line, match, kShared)) {
            m_key = match[1];
        } else if (std::regex_match(line, match, kName)) {
            m_name = match[1];
        } else if (std::regex_match(line, match, kPlace)) {
            NoteHere(match[1]);
        } else if (std::regex_match(line, match, kReference)) {
            m_references.emplace_back(m_path, match[1]);
        }
        if (std::regex_match(line, match, kEnumeration)) {
            m_enumerations.push_back(match[1]);
        }
    }

    void NoteHere(const std::string& place)
    {
        if (m_path.empty()) {
            m_shared[m_key] = {m_name, place};
        } else {
            Note(m_path, m_name, place);
        }
    }

    void Note(const std::string& path, const std::string& name, const std::string& place)
    {
        Names& names = place == "path" ? m_paths[path].inPath : m_paths[path].inQuery;
        EXPECT_TRUE(names.insert(name).second) << path << " has " << name << " twice";
    }

    std::string m_path; // that is read now; empty: none
    std::string m_key;
    std::string m_name;
    std::map<std::string, Described> m_paths;
    std::map<std::string, std::pair<std::string, std::string>> m_shared; // name and place by key
    std::vector<std::pair<std::string, std::string>> m_references;
    std::vector<std::string> m_enumerations;
};

// The parts in braces of a path.
Names PartsOf(const std::string& path)
{
    static const std::regex kPart("\\{(\\w+)\\}");
    Names parts;
    for (std::sregex_iterator part(path.begin(), path.end(), kPart); part != std::sregex_iterator(); ++part) {
        parts.insert((*part)[1]);
    }
    return parts;
}

// The path with words that exist in the place of its parts.
std::string Filled(const std::string& path)
{
    const std::string kind = path.starts_with("/peak") ? "supply" : "actual";
    return std::regex_replace(std::regex_replace(path, std::regex("\\{company\\}"), "tokyo"), std::regex("\\{kind\\}"),
                              kind);
}

// A query with all of these parameters in the order that reports ask for.
std::string QueryOf(const Names& names)
{
    static const std::map<std::string, std::string> kValues = {{"company", "kyushu"},
                                                               {"kind", "supply"},
                                                               {"from", "2012-07-01"},
                                                               {"to", "2012-07-02"},
                                                               {"asof", "2012-07-02T09:00"},
                                                               {"format", "csv"},
                                                               {"date", "2012-07-02"},
                                                               {"output", "xml"},
                                                               {"lang", "ja"}};
    std::string query;
    for (const std::string& name : names) {
        query += (query.empty() ? "?" : "&") + name + "=" + kValues.at(name);
    }
    return query;
}

TEST(OpenApi, DescribesTheRoutesAndTheirParametersAndNoOthers)
{
    const CDescription description;
    Names described;
    for (const auto& [path, parameters] : description.Paths()) {
        described.insert(path);
        EXPECT_EQ(parameters.inPath, PartsOf(path)) << path;
    }
    Names known;
    for (const Route& route : kRoutes) {
        known.insert(std::string(route.path));
        Names names(route.parameters.begin(), route.parameters.end());
        names.erase("");
        EXPECT_EQ(description.Paths().at(std::string(route.path)).inQuery, names) << route.path;
    }
    EXPECT_EQ(described, known);
}

TEST(OpenApi, WhatItDescribesIsAnsweredAndOtherParametersAreNot)
{
    CSampleSource source;
    CAnswers answers(source, nullptr, {});
    const CDescription description;
    ASSERT_GE(description.Paths().size(), 11U);
    for (const auto& [path, parameters] : description.Paths()) {
        const std::string query = QueryOf(parameters.inQuery);
        const std::string target = Filled(path) + query;
        EXPECT_EQ(Get(answers, target, kNow).status, 200U) << target;
        const std::string further = target + (query.empty() ? "?" : "&") + "further=1";
        EXPECT_THAT(Get(answers, further, kNow).status, testing::AnyOf(400U, 404U)) << further;
    }
}

TEST(OpenApi, ListsTheCompaniesAndKinds)
{
    std::string companies;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        companies.append(companies.empty() ? "" : ", ").append(company.key.Narrow());
    }
    std::string kinds;
    for (const SeriesInfo& info : kAllSeries) {
        kinds.append(info.key).append(", ");
    }
    const CDescription description;
    EXPECT_THAT(description.Enumerations(), testing::Contains(companies));
    EXPECT_THAT(description.Enumerations(), testing::Contains(kinds + std::string(kUsageRate)));
}

} // namespace
} // namespace reportd
