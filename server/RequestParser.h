// Reads HTTP requests, and of each what its answer depends on.
#pragma once

#include "server/Answers.h"

#include <boost/beast/http/basic_parser.hpp>

namespace reportd {

// The texts of one request. They keep their memory from one request to the next.
struct RequestText {
    std::string method;
    std::string target;
    std::string ifNoneMatch; // values of a field that is there several times are joined by commas
    std::string acceptLanguage;
    std::string accept;
    int version = 11;               // 10: HTTP/1.0
    bool isContinueAwaited = false; // "Expect: 100-continue" by a client that knows it

    void Clear();
    WebRequest AsRequest() const;
};

// The parser of one request; its body is read and forgotten.
class CRequestParser : public boost::beast::http::basic_parser<true> {
public:
    // text: cleared now, filled by the time the header has been read; must live as long as this object.
    explicit CRequestParser(RequestText& text);

private:
    using error_code = boost::beast::error_code;
    using string_view = boost::beast::string_view;

    void on_request_impl(boost::beast::http::verb method, string_view methodText, string_view target, int version,
                         error_code& error) override;
    void on_response_impl(int, string_view, int, error_code&) override {}
    void on_field_impl(boost::beast::http::field name, string_view nameText, string_view value,
                       error_code& error) override;
    void on_header_impl(error_code&) override {}
    void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code&) override {}
    std::size_t on_body_impl(string_view body, error_code&) override { return body.size(); }
    void on_chunk_header_impl(std::uint64_t, string_view, error_code&) override {}
    std::size_t on_chunk_body_impl(std::uint64_t, string_view body, error_code&) override { return body.size(); }
    void on_finish_impl(error_code&) override {}

    RequestText& m_text;
};

} // namespace reportd
