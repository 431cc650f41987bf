#include "testing/simulation/RunLog.h"

namespace simulation {

void CRunLog::Add(std::int64_t nowMs, std::string_view line)
{
    std::string text = std::to_string(nowMs) + " ";
    text += line;
    text += '\n';
    m_hash = HashOf(text, m_hash);
    m_length += text.size();
    if (m_keepsText) {
        m_text += text;
    }
}

} // namespace simulation
