#include "server/AnswerCache.h"

namespace reportd {

KeptAnswer* CAnswerCache::Find(std::string_view key)
{
    const auto found = m_places.find(key);
    if (found == m_places.end()) {
        return nullptr;
    }
    m_entries.splice(m_entries.begin(), m_entries, found->second);
    return &found->second->answer;
}

void CAnswerCache::Keep(std::string_view key, const KeptAnswer& answer)
{
    const auto found = m_places.find(key);
    if (found != m_places.end()) {
        Drop(found->second);
    }
    if (answer.body->size() > m_maxBytes / 8) {
        return;
    }
    m_entries.push_front({std::string(key), answer});
    m_places.emplace(m_entries.front().key, m_entries.begin());
    m_bytes += answer.body->size();
    while (m_entries.size() > m_maxAnswers || m_bytes > m_maxBytes) {
        Drop(std::prev(m_entries.end()));
    }
}

void CAnswerCache::Drop(std::list<Entry>::iterator entry)
{
    m_bytes -= entry->answer.body->size();
    m_places.erase(entry->key);
    m_entries.erase(entry);
}

} // namespace reportd
