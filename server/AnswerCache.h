// Rendered answers, kept until they are no longer right.
#pragma once

#include "server/Answers.h"

#include <list>
#include <unordered_map>

namespace reportd {

// What an answer was made from: as long as that is equal, so is the answer.
struct Basis {
    std::uint64_t revision = 0;
    std::optional<LocalTime> published = {};
    bool isOpen = false; // of a day that may still change

    bool operator==(const Basis&) const = default;
};

struct KeptAnswer {
    std::string_view contentType = {}; // of a constant
    std::shared_ptr<const std::string> body = {};
    std::shared_ptr<const std::string> fields = {}; // header lines, the ETag's among them
    std::string etag = {};                          // with its quotation marks
    std::optional<Basis> basis = {};                // none: the answer is right in the second of lookedAt only
    LocalTime lookedAt = {};                        // when it was last known to be right
    bool mustBeFresh = false;                       // not to be answered when observed is long ago
    std::optional<LocalTime> observed = {};         // what its age counts from; none: it has none
};

// At most so many answers, and so many bytes of bodies; the ones that were not asked for longest go first. One thread.
class CAnswerCache {
public:
    CAnswerCache(std::size_t maxAnswers, std::size_t maxBytes) : m_maxAnswers(maxAnswers), m_maxBytes(maxBytes) {}

    // Null when there is none. It lives until the next Keep.
    KeptAnswer* Find(std::string_view key);

    // In the place of one with the same key. One that is larger than an eighth of all the room is not kept.
    void Keep(std::string_view key, const KeptAnswer& answer);

private:
    struct Entry {
        std::string key;
        KeptAnswer answer;
    };

    void Drop(std::list<Entry>::iterator entry);

    const std::size_t m_maxAnswers;
    const std::size_t m_maxBytes;
    std::size_t m_bytes = 0;
    std::list<Entry> m_entries;                                                // asked for last: first
    std::unordered_map<std::string_view, std::list<Entry>::iterator> m_places; // by the keys in m_entries
};

} // namespace reportd
