#include "server/RequestParser.h"

#include <boost/beast/core/string.hpp>

namespace reportd {

void RequestText::Clear()
{
    for (std::string* const text : {&method, &target, &ifNoneMatch, &acceptLanguage, &accept}) {
        text->clear();
    }
    isContinueAwaited = false;
}

WebRequest RequestText::AsRequest() const
{
    return {.method = method,
            .target = target,
            .ifNoneMatch = ifNoneMatch,
            .acceptLanguage = acceptLanguage,
            .accept = accept};
}

CRequestParser::CRequestParser(RequestText& text) : m_text(text) { m_text.Clear(); }

void CRequestParser::on_request_impl(boost::beast::http::verb /*method*/, string_view methodText, string_view target,
                                     int version, error_code& /*error*/)
{
    m_text.method.assign(methodText.data(), methodText.size());
    m_text.target.assign(target.data(), target.size());
    m_text.version = version;
}

void CRequestParser::on_field_impl(boost::beast::http::field name, string_view /*nameText*/, string_view value,
                                   error_code& /*error*/)
{
    using boost::beast::http::field;
    const auto join = [value](std::string& text) {
        text.append(text.empty() ? "" : ",").append(value.data(), value.size());
    };
    switch (name) {
    case field::if_none_match:
        join(m_text.ifNoneMatch);
        break;
    case field::accept_language:
        join(m_text.acceptLanguage);
        break;
    case field::accept:
        join(m_text.accept);
        break;
    case field::expect:
        m_text.isContinueAwaited = m_text.version >= 11 && boost::beast::iequals(value, "100-continue");
        break;
    default:
        break;
    }
}

} // namespace reportd
