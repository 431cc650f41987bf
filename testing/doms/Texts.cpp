#include "testing/doms/Texts.h"

#include "testing/Reports.h"
#include "testing/simulation/Generator.h"

#include <algorithm>
#include <iterator>
#include <regex>

namespace doms {

namespace {

using simulation::CGenerator;
using testing_support::ElementXml;
using testing_support::PeakXml;
using testing_support::UsageXml;

template <std::size_t count>
const char* OneOf(CGenerator& generator, const char* const (&words)[count])
{
    return words[generator.Below(count)];
}

constexpr const char* kBlanks[] = {" ",        "\n",           "\t", "\r\n", "\r", "  \n ", "\xC2\xA0", "\xE3\x80\x80",
                                   "\xC2\x85", "\xE2\x80\xA8", "\f", "\v",   ""};
constexpr const char* kNumbers[] = {"",
                                    "-1",
                                    "+7",
                                    " 12 ",
                                    "abc",
                                    "4294967295",
                                    "4294967296",
                                    "18446744073709551615",
                                    "18446744073709551616",
                                    "99999999999999999999999",
                                    "0x10",
                                    "1e3",
                                    "3.9",
                                    "3,000",
                                    "-0",
                                    "--1",
                                    "\xEF\xBC\x93",
                                    "\xE3\x80\x80"
                                    "5",
                                    "\xC2\xA0"
                                    "5",
                                    "00000000009",
                                    "-2147483648",
                                    "2147483647"};
constexpr const char* kTimes[] = {"",
                                  "2012-13-01T00:00:00",
                                  "2012-02-30T10:00:00",
                                  "2012-07-02",
                                  "99-1-1T1:1:1",
                                  "2012-07-02T24:00:00",
                                  "2012-07-02T13:00:00+09:00",
                                  "2012-07-02T13:00:60Z",
                                  " 2012-07-02T13:00:00",
                                  "2012- 7- 2T 1: 2: 3",
                                  "+201-07-02T13:00:00",
                                  "noon",
                                  "1601-01-01T00:00:00",
                                  "1899-12-31T23:59:59",
                                  "1950-01-01T00:00:00",
                                  "1970-01-01T09:00:00",
                                  "1970-01-01T08:59:59",
                                  "3000-12-31T23:59:59",
                                  "9999-12-31T23:59:59",
                                  "30827-01-01T00:00:00",
                                  "2012-07-02t13:00:00",
                                  "2012-07-02T13:00:00\xE3\x80\x80",
                                  "2012-02-29T23:59:59",
                                  "2013-02-29T00:00:00"};
constexpr const char* kDeclarations[] = {"<?xml version=\"1.0\"?>",
                                         "<?xml version='1.0' standalone='yes' ?>",
                                         "<?xml version=\"1.1\"?>",
                                         "<?xml version=\"2.0\"?>",
                                         "<?xml version=\"1.0\" standalone=\"maybe\"?>",
                                         "<?xml encoding=\"UTF-8\"?>",
                                         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>",
                                         "<?xml version='1.0' encoding='utf-8'?>",
                                         "<?xml version=\"1.0\" encoding=\"UTF-16\"?>",
                                         "<?xml version=\"1.0\" encoding=\"Shift_JIS\"?>",
                                         "<?xml version=\"1.0\" encoding=\"EUC-JP\"?>",
                                         "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>",
                                         "<?xml version=\"1.0\" encoding=\"US-ASCII\"?>",
                                         "<?xml version=\"1.0\" encoding=\"UCS-4\"?>",
                                         "<?xml version=\"1.0\" encoding=\"none\"?>",
                                         "<?xml version=\"1.0\" encoding=\"\"?>",
                                         "<?xml?>",
                                         "<?XML version=\"1.0\"?>"};
constexpr const char* kPieces[] = {
    // References.
    "&amp;", "&lt;", "&#65;", "&#x3042;", "&#32;", "&#10;", "&#xD;", "&#0;", "&#1;", "&#xD800;", "&#x110000;", "&nbsp;",
    "&undefined;", "&", "&#;", "&amp",
    // Sections, comments, instructions.
    "<![CDATA[ 5 ]]>", "<![CDATA[]]>", "<![CDATA[ <x> & ]]>", "<![CDATA[1]]><![CDATA[2]]>", "<![CDATA[", "]]>",
    "<!-- c -->", "<!---->", "<!-- -- -->", "<!--", "-->", "<?p q?>", "<?p?>", "<?xml version=\"1.0\"?>", "<?xml-s x?>",
    "<?", "<!DOCTYPE power_report>", "<!ELEMENT a ANY>",
    // Characters that are none, or odd.
    "\x01", "\x1F", "\x7F", "\xC2\x80", "\xEF\xBF\xBE", "\xEF\xBF\xBF", "\xEF\xBB\xBF", "\xED\xA0\x80", "\xFF",
    "\xE3\x81", "\xF0\x9F\x98\x80", "\xE9\x9B\xBB", "<", ">", "\"", "'", "=", "/", ":",
    // Elements.
    "<a/>", "<x:a/>", "<a>7</a>", "<usage/>", "<usage datetime=\"2012-07-02T01:00:00\" duration=\"60\">3</usage>",
    "<weather>rain</weather>", "</a>", "<a b=c/>", "<a b='1' b='2'/>", "<\xE9\x9B\xBB/>", "<1a/>", "<a b/>"};
constexpr const char* kAttributes[] = {" xml:space=\"preserve\"",
                                       " xml:space='default'",
                                       " xml:space=\"other\"",
                                       " space=\"preserve\"",
                                       " xmlns=\"u\"",
                                       " xmlns:x=\"u\"",
                                       " xmlns:x=\"\"",
                                       " x:a=\"1\"",
                                       " xml:lang=\"ja\"",
                                       " a=\"1\"",
                                       " a = '1'",
                                       " a=\"<\"",
                                       " a=\"&#10;\"",
                                       " a=\"\n\t\"",
                                       " duration=\"1\"",
                                       " datetime='2012-07-02T02:00:00'",
                                       " a",
                                       "\n",
                                       " xmlns:xml=\"u\"",
                                       " xmlns:xmlns=\"u\"",
                                       " \xE6\x99\x82=\"1\""};
constexpr const char* kNames[] = {"power_report", "Power_Report", "instant_usage",  "actual_usage", "estimated_usage",
                                  "peak_supply",  "peak_demand",  "usage",          "Usage",        "supply",
                                  "demand",       "x:usage",      "x:power_report", "weather",      "a"};

std::string DrawNumber(CGenerator& generator)
{
    return generator.Chance(150) ? OneOf(generator, kNumbers) : std::to_string(generator.Below(100'000));
}

std::string DrawTime(CGenerator& generator)
{
    if (generator.Chance(150)) {
        return OneOf(generator, kTimes);
    }
    const auto two = [&](std::int64_t low, std::int64_t high) {
        return std::to_string(100 + generator.Between(low, high)).substr(1);
    };
    std::string time = "20";
    for (const char* end : {"-", "-", "T", ":", ":", ""}) {
        time += two(1, *end == '-' && time.size() > 2 ? 12 : 28) + end; // hours above 23 are invalid, at times
    }
    return time;
}

// The white space between the elements of a text: mostly of one kind.
std::string DrawBlank(CGenerator& generator, const std::string& usual)
{
    return generator.Chance(30) ? OneOf(generator, kBlanks) : usual;
}

std::string DrawKind(CGenerator& generator, const std::string& blank)
{
    const testing_support::TestKind& kind = testing_support::kTestKinds[generator.Below(5)];
    std::string items = DrawBlank(generator, blank);
    for (std::uint64_t left = generator.Below(4); left > 0; --left) {
        items += kind.isTrimmed ? UsageXml({DrawTime(generator), DrawNumber(generator), DrawNumber(generator)})
                                : PeakXml(kind.item, {DrawTime(generator), DrawTime(generator), DrawNumber(generator)});
        items += DrawBlank(generator, blank);
    }
    return ElementXml(kind.element, items);
}

std::string DrawReport(CGenerator& generator)
{
    const std::string blank = generator.Chance(500) ? "\n  " : generator.Chance(500) ? "" : OneOf(generator, kBlanks);
    std::string content = DrawBlank(generator, blank);
    for (std::uint64_t left = generator.Chance(50) ? 0 : 1 + generator.Below(3); left > 0; --left) {
        content += DrawKind(generator, blank) + DrawBlank(generator, blank);
    }
    const std::string declaration = generator.Chance(600) ? kDeclarations[0] : "";
    return declaration + DrawBlank(generator, blank) + ElementXml("power_report", content) +
           DrawBlank(generator, blank);
}

// Where one of these characters stands, from a drawn place on; the drawn place when it does not.
std::size_t DrawPlace(CGenerator& generator, const std::string& text, const char* characters)
{
    const std::size_t place = generator.Below(text.size() + 1);
    const std::size_t found = text.find_first_of(characters, place);
    return found == std::string::npos ? place : found;
}

// Behind a tag, or anywhere.
std::size_t DrawGap(CGenerator& generator, const std::string& text)
{
    const std::size_t place = DrawPlace(generator, text, generator.Chance(800) ? ">" : "");
    return place < text.size() && text[place] == '>' ? place + 1 : place;
}

// Behind the name in a tag, mostly one that begins an element.
std::size_t DrawEndOfName(CGenerator& generator, const std::string& text)
{
    std::size_t place = DrawPlace(generator, text, "<");
    while (place + 1 < text.size() && text.find_first_of("/!?", place + 1) == place + 1 && generator.Chance(900)) {
        place = DrawPlace(generator, text, "<");
    }
    return std::min(text.find_first_of(" />", std::min(place + 2, text.size())), text.size());
}

void AddBlank(CGenerator& generator, std::string& text)
{
    text.insert(DrawPlace(generator, text, generator.Chance(700) ? "<" : "<>\"/= "), OneOf(generator, kBlanks));
}

void AddPiece(CGenerator& generator, std::string& text)
{
    text.insert(DrawGap(generator, text), OneOf(generator, kPieces));
}

void AddAttribute(CGenerator& generator, std::string& text)
{
    text.insert(DrawEndOfName(generator, text), OneOf(generator, kAttributes));
}

void AddBeginning(CGenerator& generator, std::string& text)
{
    constexpr const char* kBeginnings[] = {"\xEF\xBB\xBF",
                                           "\xEF\xBB\xBF\xEF\xBB\xBF",
                                           " ",
                                           "\xEF\xBB\xBF ",
                                           " \xEF\xBB\xBF",
                                           "\n\t",
                                           "\xE3\x80\x80",
                                           "\xC2\xA0",
                                           "\x01",
                                           "x",
                                           "<!-- a -->",
                                           "<?p?>"};
    text.insert(0, OneOf(generator, kBeginnings));
}

void AddEnd(CGenerator& generator, std::string& text)
{
    constexpr const char* kEnds[] = {
        "x",     "<a/>",          "<!-- a -->", "<?p?>",           "\xC2\xA0", "\xEF\xBB\xBF",
        "&#32;", "<![CDATA[ ]]>", "\x1A",       "</power_report>", "<!--",     "<",
        "&amp;"};
    text += OneOf(generator, kEnds);
}

void ChangeDeclaration(CGenerator& generator, std::string& text)
{
    const std::size_t end = text.starts_with("<?xml") ? text.find("?>") : std::string::npos;
    text.replace(0, end == std::string::npos ? 0 : end + 2, OneOf(generator, kDeclarations));
}

void Rename(CGenerator& generator, std::string& text)
{
    std::size_t place = DrawPlace(generator, text, "<");
    place = std::min(text.size(), place + (text.compare(place, 2, "</") == 0 ? 2 : 1));
    const std::size_t end = std::min(text.find_first_of(" />", place), text.size());
    const std::string name = text.substr(place, end - place);
    const std::string other = OneOf(generator, kNames);
    text.replace(place, name.size(), other);
    // The tag at the other end too, mostly: a document stays one.
    const std::size_t next = text.find("</" + name + ">", place);
    if (!name.empty() && next != std::string::npos && generator.Chance(700)) {
        text.replace(next + 2, name.size(), other);
    }
}

void Wrap(CGenerator& generator, std::string& text)
{
    const std::size_t depth = generator.Chance(100) ? 240 + generator.Below(30) : 1 + generator.Below(4);
    const std::size_t begin = DrawGap(generator, text);
    const std::size_t next = text.find('<', begin);
    const std::size_t end = generator.Chance(500) || next == std::string::npos ? begin : next;
    std::string before;
    std::string after;
    for (std::size_t i = 0; i < depth; ++i) {
        before += "<a>";
        after += "</a>";
    }
    text.insert(end, after).insert(begin, before);
}

void WrapInCdata(CGenerator& generator, std::string& text)
{
    const std::size_t begin = DrawGap(generator, text);
    const std::size_t end = std::min(text.find('<', begin), text.size());
    text.insert(end, "]]>").insert(begin, "<![CDATA[");
}

void Truncate(CGenerator& generator, std::string& text) { text.resize(generator.Below(text.size() + 1)); }

void Remove(CGenerator& generator, std::string& text)
{
    const std::size_t begin = DrawPlace(generator, text, "<\" >");
    const std::size_t end = text.find_first_of("<>\" ", begin + 1);
    text.erase(begin, end == std::string::npos ? 1 : end - begin);
}

void SwapTags(CGenerator& generator, std::string& text)
{
    const std::size_t first = DrawPlace(generator, text, "<");
    const std::size_t second = text.find('<', first + 1);
    const std::size_t end = text.find('<', second + 1);
    if (end != std::string::npos && second != std::string::npos) {
        text = text.substr(0, first) + text.substr(second, end - second) + text.substr(first, second - first) +
               text.substr(end);
    }
}

void Repeat(CGenerator& generator, std::string& text)
{
    const std::size_t begin = DrawPlace(generator, text, "<");
    const std::string part = text.substr(begin, generator.Below(200));
    text.insert(DrawPlace(generator, text, "<"), part);
}

void ChangeByte(CGenerator& generator, std::string& text)
{
    if (!text.empty()) {
        text[generator.Below(text.size())] = static_cast<char>(generator.Below(256));
    }
}

using Mutation = void (*)(CGenerator& generator, std::string& text);
constexpr Mutation kMutations[] = {AddBlank,     AddBlank, AddPiece,          AddPiece, AddAttribute, AddAttribute,
                                   AddBeginning, AddEnd,   ChangeDeclaration, Rename,   Wrap,         WrapInCdata,
                                   Truncate,     Remove,   SwapTags,          Repeat,   ChangeByte};

} // namespace

std::string DrawText(std::uint64_t seed)
{
    CGenerator generator(seed);
    std::string text = DrawReport(generator);
    // The more is done to a text, the sooner it is no document at all: three in ten stay whole.
    while (generator.Chance(700)) {
        kMutations[generator.Below(std::size(kMutations))](generator, text);
        if (generator.Chance(500)) {
            break;
        }
    }
    return text;
}

namespace {

// Where a character stands in a text that is read from its beginning.
struct Place {
    bool isInTag = false;
    char quote = '\0'; // of the attribute's value that it belongs to

    void Pass(char each)
    {
        if (quote != '\0') {
            quote = each == quote ? '\0' : quote;
        } else if (each == '<' || each == '>') {
            isInTag = each == '<';
        } else if (isInTag && (each == '"' || each == '\'')) {
            quote = each;
        }
    }
};

// '_' for the colon of each name in a tag, but for those of XML itself.
std::string WithoutPrefixes(std::string text)
{
    Place place;
    for (std::size_t i = 0; i < text.size(); ++i) {
        place.Pass(text[i]);
        if (text[i] == ':' && place.isInTag && place.quote == '\0' && !text.substr(0, i).ends_with("xml")) {
            text[i] = '_';
        }
    }
    return text;
}

} // namespace

std::string Without(Trait trait, const std::string& text)
{
    static const std::regex kEncoding("(<\\?xml[^>]*?)\\s+encoding\\s*=\\s*(\"[^\"]*\"|'[^']*')");
    static const std::regex kLineEnd("[\\r\\n]|&#(10|13|x[AaDd]);");
    static const std::regex kJoin("\\]\\]><!\\[CDATA\\[");
    switch (trait) {
    case Trait::kEncoding:
        return std::regex_replace(text, kEncoding, "$1", std::regex_constants::format_first_only);
    case Trait::kPrefix:
        return WithoutPrefixes(text);
    case Trait::kCdata:
        return std::regex_replace(text, kJoin, "");
    default:
        return std::regex_replace(text, kLineEnd, " ");
    }
}

} // namespace doms
