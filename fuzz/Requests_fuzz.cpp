// Requests as anybody may send them to the report server.
#include "fuzz/Require.h"
#include "server/RequestParser.h"
#include "server/SampleSource.h"
#include "testing/Answering.h"

#include <algorithm>

namespace {

using namespace std::chrono_literals;

// 2012-07-02 13:00: there is data before and after the days that the seeds ask for.
constexpr reportd::LocalTime kNow = std::chrono::local_days{2012y / 7 / 2} + 13h;

// Header lines, each with its end and without any other control character.
void CheckFields(std::string_view fields)
{
    while (!fields.empty()) {
        const std::size_t end = fields.find("\r\n");
        Require(end != std::string_view::npos);
        const std::string_view line = fields.substr(0, end);
        Require(line.find(": ") != std::string_view::npos);
        Require(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; }));
        fields.remove_prefix(end + 2);
    }
}

void CheckAnswer(const reportd::RequestText& text)
{
    static reportd::CSampleSource source;
    static reportd::CAnswers answers(source, nullptr, {});
    const reportd::WebAnswer answer = testing_support::Finished(answers.Answer(text.AsRequest(), kNow));
    constexpr std::array kStatuses = {200U, 304U, 400U, 404U, 405U, 503U};
    Require(std::find(kStatuses.begin(), kStatuses.end(), answer.status) != kStatuses.end());
    Require(answer.fields != nullptr);
    CheckFields(*answer.fields);
    const std::string body = testing_support::BodyOf(answer);
    Require(body.empty() == (answer.contentType.empty()));
    if (answer.status != 200) { // words of ours, which hold nothing of the request
        Require(body.find_first_of("<>&") == std::string::npos);
    }
}

} // namespace

// bytes: what a client sends, request after request.
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size)
{
    reportd::RequestText text;
    for (int requests = 0; requests < 10 && size > 0; ++requests) {
        reportd::CRequestParser parser(text);
        parser.header_limit(8 * 1024);
        parser.body_limit(std::uint64_t{64} * 1024);
        parser.eager(true);
        boost::beast::error_code error;
        const std::size_t taken = parser.put(boost::asio::const_buffer(bytes, size), error);
        if (error || !parser.is_done()) {
            return 0;
        }
        CheckAnswer(text);
        bytes += taken;
        size -= taken;
    }
    return 0;
}
