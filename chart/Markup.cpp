#include "chart/Markup.h"

namespace chart {

std::string Escape(std::string_view text)
{
    constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        switch (character) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            const bool isControl = static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
            if (isControl && character != '\t' && character != '\n') {
                escaped += kReplacement;
            } else {
                escaped += character;
            }
        }
    }
    return escaped;
}

void CMarkup::WriteTag(std::string_view name, Attributes attributes, std::string_view end)
{
    m_text.append("<").append(name);
    for (const auto& [attribute, value] : attributes) {
        m_text.append(" ").append(attribute).append("=\"").append(Escape(value)).append("\"");
    }
    m_text += end;
}

} // namespace chart
