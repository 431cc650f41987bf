// Runs the report analyzer over drawn texts, on the system's own document object model, and prints what becomes of
// each: dom_texts [--show] [--without TRAIT]... FIRST LAST. With "-" for FIRST the seeds come from standard input.
//
// A line for each seed: the seed, a digest of all records and trace lines, and the number of records, "-" when the text
// gives no list. With --show the text, the records and the lines themselves. TRAIT: encoding, prefix, cdata; see
// Texts.h.
#include "config/TraceLog.h"
#include "data/CalendarTime.h"
#include "data/GSXMLAnalyzer.h"
#include "platform/Apartment.h"
#include "platform/sim/Machine.h"
#include "platform/Text.h"
#include "testing/CalendarText.h"
#include "testing/doms/Texts.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <iterator>
#include <vector>

namespace {

constexpr const char* kTraitNames[] = {"encoding", "prefix", "cdata", "lineend"};
static_assert(std::size(kTraitNames) == static_cast<std::size_t>(doms::Trait::kCount));

std::string g_lines; // what the analyzer traced

struct Outcome {
    std::string records; // how many, or "-"
    std::string content; // the records and the trace lines
};

Outcome Analyze(const std::string& text)
{
    g_lines.clear();
    Outcome outcome{"-", ""};
    try {
        CGSXMLAnalyzer analyzer;
        const auto list = static_cast<CAmporaAnalyzer&>(analyzer).AnalyzeData(platform::DecodeUtf8(text));
        if (list) {
            outcome.records = std::to_string(list->Records().size());
            for (const _AmporaOneData& record : list->Records()) {
                outcome.content += testing_support::RecordText(record) + "\n";
            }
        }
    } catch (const COleException& exception) {
        outcome.content = "exception " + std::to_string(exception.Code()) + "\n";
    }
    outcome.content += g_lines;
    return outcome;
}

// FNV-1a.
std::uint64_t DigestOf(const std::string& text)
{
    std::uint64_t digest = 0xCBF29CE484222325;
    for (const char each : text) {
        digest = (digest ^ static_cast<unsigned char>(each)) * 0x100000001B3;
    }
    return digest;
}

void Print(std::uint64_t seed, const std::vector<doms::Trait>& without, bool shows)
{
    std::string text = doms::DrawText(seed);
    for (const doms::Trait trait : without) {
        text = doms::Without(trait, text);
    }
    const Outcome outcome = Analyze(text);
    std::cout << std::dec << seed << ' ' << std::hex << std::setw(16) << std::setfill('0') << DigestOf(outcome.content)
              << ' ' << outcome.records << '\n';
    if (shows) {
        std::cout << text << '\n' << outcome.content;
    }
}

} // namespace

int main(int count, char** arguments)
{
    std::vector<std::string> words(arguments + 1, arguments + count);
    std::vector<doms::Trait> without;
    bool shows = false;
    bool isUnderstood = true;
    for (; words.size() > 1 && words.front().starts_with("--"); words.erase(words.begin())) {
        shows = shows || words.front() == "--show";
        if (words.front() == "--without") {
            words.erase(words.begin());
            const auto* const found = std::find(std::begin(kTraitNames), std::end(kTraitNames), words.front());
            without.push_back(static_cast<doms::Trait>(found - std::begin(kTraitNames)));
            isUnderstood = isUnderstood && found != std::end(kTraitNames);
        }
    }
    if (!isUnderstood || words.empty() || (words.size() == 1) != (words.front() == "-")) {
        std::cerr << "usage: dom_texts [--show] [--without TRAIT]... FIRST LAST | -\n";
        return 2;
    }
    platform::sim::CMachine machine;
    machine.KeepDebugLines(false);
    platform::sim::SetDebugTap([](const CString& line) { g_lines += platform::EncodeUtf8(line); });
    g_dwLogLevel = kTraceErr | kTraceWar | kTraceTra | kTraceScope;
    platform::EnterApartment();
    if (words.front() == "-") {
        for (std::uint64_t seed = 0; std::cin >> seed;) {
            Print(seed, without, shows);
        }
    } else {
        for (std::uint64_t seed = std::stoull(words[0]); seed <= std::stoull(words[1]); ++seed) {
            Print(seed, without, shows);
        }
    }
    platform::LeaveApartment();
    return 0;
}
