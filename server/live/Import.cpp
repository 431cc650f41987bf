#include "server/live/Import.h"

#include "server/live/Archive.h"
#include "server/live/Intake.h"
#include "server/live/WholeFile.h"
#include "server/live/Wording.h"
#include "server/TimeText.h"

#include <ostream>

namespace reportd {
namespace {

constexpr std::uintmax_t kMostFileMib = 64; // an archive of kMostMembers is far smaller

// Whether a name is what a pattern with %Y, %m and %d becomes for some day.
bool Matches(std::string_view name, std::string_view pattern)
{
    std::size_t at = 0;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%') {
            if (at == name.size() || name[at++] != pattern[i]) {
                return false;
            }
            continue;
        }
        ++i;
        const std::size_t digits = i < pattern.size() && pattern[i] == 'Y' ? 4 : 2;
        const std::string_view part = name.substr(at, digits);
        if (part.size() != digits || part.find_first_not_of("0123456789") != std::string_view::npos) {
            return false;
        }
        at += digits;
    }
    return at == name.size();
}

// The last part of an address's path; empty for an address of a folder.
std::string_view LastPart(std::string_view url)
{
    url = url.substr(0, url.find('?'));
    return url.substr(url.rfind('/') + 1);
}

bool IsNameOf(const CompanySettings& company, std::string_view name)
{
    for (const std::string& url : {company.todayUrl, company.pastUrl}) {
        const std::string_view pattern = LastPart(url);
        if (!pattern.empty() && Matches(name, pattern)) {
            return true;
        }
    }
    return false;
}

// Why a company cannot be told by a file's name.
std::string SayUndecided(const std::vector<int>& candidates)
{
    if (candidates.empty()) {
        return "its name does not tell the company: give --company (" + AllCompanyKeys() + ")";
    }
    std::string keys;
    for (const int candidate : candidates) {
        keys += (keys.empty() ? "" : ", ") + KeyOfCompany(candidate);
    }
    return "its name is that of several companies (" + keys + "): give --company";
}

} // namespace

std::vector<int> CompaniesOfName(const LiveSettings& settings, std::string_view name)
{
    constexpr std::string_view kCompressed = ".gz";
    if (name.ends_with(kCompressed)) {
        name.remove_suffix(kCompressed.size());
    }
    std::vector<int> companies;
    for (const catalogue::Company& company : catalogue::kCompanies) {
        if (IsNameOf(settings.companies.at(company.siteNumber), name)) {
            companies.push_back(company.siteNumber);
        }
    }
    return companies;
}

CImport::CImport(const LiveSettings& settings, CFigureStore& store, std::function<LocalTime()> clock, std::ostream& out)
    : m_settings(settings), m_store(store), m_clock(std::move(clock)), m_out(out)
{
}

bool CImport::ImportFile(const std::filesystem::path& file, std::optional<int> siteNumber)
{
    const std::string name = file.filename().string();
    const std::string shownName = Shown(name);
    if (!siteNumber) {
        const std::vector<int> candidates = CompaniesOfName(m_settings, name);
        if (candidates.size() != 1) {
            return Refuse(shownName, SayUndecided(candidates));
        }
        siteNumber = candidates.front();
    }
    std::string bytes;
    try {
        bytes = ReadWholeFile(file, kMostFileMib);
        if (LooksLikeGzip(bytes)) {
            bytes = ReadGzip(bytes);
        }
    } catch (const std::runtime_error& error) {
        return Refuse(shownName, error.what());
    }
    return LooksLikeZip(bytes) ? ImportArchive(bytes, shownName, *siteNumber)
                               : ImportCsv(bytes, shownName, name, *siteNumber);
}

bool CImport::ImportArchive(const std::string& bytes, const std::string& shownName, int siteNumber)
{
    bool isGood = true;
    std::size_t count = 0;
    try {
        ReadZip(bytes, [&](const ArchiveMember& member) {
            ++count;
            const std::string shownMember = shownName + ": " + Shown(member.name);
            const bool isTaken = member.fault.empty() ? ImportCsv(member.bytes, shownMember, member.name, siteNumber)
                                                      : Refuse(shownMember, member.fault);
            isGood = isGood && isTaken;
        });
    } catch (const CArchiveError& error) {
        return Refuse(shownName, error.what());
    }
    return count > 0 ? isGood : Refuse(shownName, "the archive is empty");
}

bool CImport::ImportCsv(std::string_view bytes, const std::string& shownName, std::string_view name, int siteNumber)
{
    if (bytes.size() > kMostMemberBytes) {
        return Refuse(shownName, "is larger than 1 MiB");
    }
    try {
        const Intake intake =
            TakeSavedFile(m_store, siteNumber, m_settings.companies.at(siteNumber), bytes, DayOfName(name), m_clock());
        m_out << shownName << ": " << KeyOfCompany(siteNumber) << " " << DateText(intake.date) << ": "
              << intake.appended << " figures added" << std::endl;
        return true;
    } catch (const CRefusedFile& error) {
        return Refuse(shownName, error.what());
    }
}

bool CImport::Refuse(const std::string& shownName, const std::string& why)
{
    m_out << shownName << ": refused: " << why << std::endl;
    return false;
}

} // namespace reportd
