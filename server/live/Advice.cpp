#include "server/live/Advice.h"

#include "server/live/Wording.h"
#include "server/retrieval/Fetcher.h"

#include <algorithm>
#include <array>

namespace reportd {
namespace {

constexpr const char* kNewAddress =
    "the address has probably been replaced: look for the file on the company's pages and set today_url";

struct FailureAdvice {
    std::string_view failure;
    const char* meaning;
    const char* advice;
};
constexpr std::array kFailures = {
    FailureAdvice{"url", "the address is not valid", "correct the address in the settings"},
    FailureAdvice{"dns", "the name of its server cannot be resolved",
                  "check whether this machine has a network and whether the address in the settings is right"},
    FailureAdvice{"connect", "its server cannot be reached",
                  "check whether this machine has a network and its firewall allows connections to other servers"},
    FailureAdvice{"tls", "the certificate of its server is not trusted",
                  "check whether this machine's clock and certificates (package ca-certificates) are up to date"},
    FailureAdvice{"timeout", "its server did not answer in time", "try again later"},
    FailureAdvice{"too_big", "the answer is larger than 1 MiB", kNewAddress},
    FailureAdvice{"redirect", "the address redirects in a loop, or to a protocol that is not allowed", kNewAddress},
    FailureAdvice{"broken", "the answer was damaged", "try again later"},
    FailureAdvice{"interrupted", "the request was interrupted", "try again"},
    FailureAdvice{"authority", "the file of certificates cannot be read", "correct authority_file in the settings"},
};

const FailureAdvice* FindFailure(const std::string& failure)
{
    const auto* const found = std::find_if(kFailures.begin(), kFailures.end(), [&](const FailureAdvice& candidate) {
        return candidate.failure == failure;
    });
    return found == kFailures.end() ? nullptr : found;
}

constexpr long kOk = 200;
constexpr long kForbidden = 403;
constexpr long kNotFound = 404;
constexpr long kGone = 410;
constexpr long kTooManyRequests = 429;
constexpr long kServerFault = 500;

} // namespace

std::optional<std::string> ProblemOf(const FetchAnswer& answer)
{
    if (!answer.failure.empty()) {
        const FailureAdvice* const found = FindFailure(answer.failure);
        const std::string meaning = found == nullptr ? "no answer" : found->meaning;
        return answer.detail.empty() ? meaning : meaning + " (" + Shown(answer.detail) + ")";
    }
    if (answer.status == kOk) {
        return std::nullopt;
    }
    return "its server answered with status " + std::to_string(answer.status);
}

std::string AdviceOn(const FetchAnswer& answer)
{
    if (!answer.failure.empty()) {
        const FailureAdvice* const found = FindFailure(answer.failure);
        return found == nullptr ? "try again later" : found->advice;
    }
    if (answer.status == kForbidden) {
        return "the server does not want this client: another agent in the settings may help";
    }
    if (answer.status == kNotFound || answer.status == kGone) {
        return kNewAddress;
    }
    if (answer.status == kTooManyRequests) {
        return "this machine has asked too often: a longer interval_minutes helps";
    }
    return answer.status >= kServerFault ? "the server has a fault of its own: try again later" : kNewAddress;
}

std::string AdviceOn(Refusal reason)
{
    switch (reason) {
    case Refusal::kHtml:
    case Refusal::kFrozen:
    case Refusal::kOtherDay:
        return kNewAddress;
    case Refusal::kFutureStamp:
        return "check whether this machine's clock is right";
    case Refusal::kUnknownLayout:
        return "the company has changed the file: compare its headings and add the new ones to headings in the "
               "settings";
    case Refusal::kEmpty:
    case Refusal::kTruncated:
        return "the file may have been read while it was written: try again in five minutes";
    default:
        return "the company has changed the file or published a faulty one: look at it, and at a newer ampora-reportd";
    }
}

} // namespace reportd
