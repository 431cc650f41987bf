// Compressed files: what a company publishes as an archive, and what we keep.
#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace reportd {

// The bytes are no archive of that kind, or a damaged one.
class CArchiveError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What a member of an archive, or a compressed file, may hold: archives that are much larger unpacked than packed do no
// harm.
inline constexpr std::size_t kMostMemberBytes = std::size_t{1} << 20U;
inline constexpr std::size_t kMostMembers = 400;

struct ArchiveMember {
    std::string name;  // without folders; not trusted: it may contain any byte but '/'
    std::string bytes; // empty with a fault
    std::string fault; // why it cannot be read, for people; empty: it could be
};

// How a file begins tells what it is. Any thread, as all functions here.
bool LooksLikeZip(std::string_view bytes);
bool LooksLikeGzip(std::string_view bytes);

// Calls visit for each member of a ZIP archive in the order of the archive; folders do not count. Throws CArchiveError
// when it is damaged or encrypted, or has more than kMostMembers, after the members before that.
void ReadZip(std::string_view bytes, const std::function<void(const ArchiveMember&)>& visit);

// The bytes that were compressed, at most kMostMemberBytes, in one piece (RFC 1952 allows several in a row). Throws
// CArchiveError.
std::string ReadGzip(std::string_view bytes);

// Throws std::runtime_error.
std::string MakeGzip(std::string_view bytes);

} // namespace reportd
