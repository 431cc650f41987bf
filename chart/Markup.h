// Writes XML, SVG and HTML that are well-formed whatever the texts in them hold.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace chart {

// The text for use between tags and in attributes of either kind of quotation marks: & < > " ' are escaped, and control
// characters that XML does not have become U+FFFD. text: UTF-8, which is not checked.
std::string Escape(std::string_view text);

// A document or a piece of one. Names of elements and attributes are written as they are. One thread at a time.
class CMarkup {
public:
    using Attributes = std::initializer_list<std::pair<std::string_view, std::string_view>>;

    // An element with what writeContent() writes.
    template <typename WriteContent>
    requires std::is_invocable_v<WriteContent>
    void Element(std::string_view name, Attributes attributes, WriteContent writeContent)
    {
        WriteTag(name, attributes, ">");
        writeContent();
        m_text.append("</").append(name).append(">");
    }

    // An element with a text.
    void Element(std::string_view name, Attributes attributes, std::string_view text)
    {
        Element(name, attributes, [this, text] { Text(text); });
    }

    // An element that has no content and is closed in its tag: one of SVG, or one of HTML that never has any.
    void Empty(std::string_view name, Attributes attributes) { WriteTag(name, attributes, "/>"); }

    void Text(std::string_view text) { m_text += Escape(text); }

    // Well-formed markup, as it is.
    void Markup(std::string_view markup) { m_text += markup; }

    // All that has been written.
    const std::string& Written() const { return m_text; }

private:
    void WriteTag(std::string_view name, Attributes attributes, std::string_view end);

    std::string m_text;
};

} // namespace chart
