// Advice for users: what a failed download or a refused file means, and what to do about it.
#pragma once

#include "server/published/PublishedFile.h"

#include <optional>
#include <string>

namespace reportd {

struct FetchAnswer;

// All functions may be called from any thread. Texts are whole clauses for people, without a full stop at their end.

// What is wrong with an answer: no answer at all, or a status other than 200. None when it is a file.
std::optional<std::string> ProblemOf(const FetchAnswer& answer);

// What to do about such an answer.
std::string AdviceOn(const FetchAnswer& answer);

// What to do about a file that was refused.
std::string AdviceOn(Refusal reason);

} // namespace reportd
