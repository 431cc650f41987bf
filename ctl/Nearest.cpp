#include "ctl/Nearest.h"

#include <algorithm>

namespace ctl {

namespace {

char LowerCase(char letter) { return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter; }

bool IsSame(char left, char right) { return LowerCase(left) == LowerCase(right); }

// Changed, added, left out and swapped letters between two words (optimal string alignment distance).
std::size_t Distance(std::string_view left, std::string_view right)
{
    std::vector<std::vector<std::size_t>> distances(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i) {
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                distances[i][j] = i + j;
                continue;
            }
            const std::size_t change = IsSame(left[i - 1], right[j - 1]) ? 0 : 1;
            distances[i][j] =
                std::min({distances[i - 1][j] + 1, distances[i][j - 1] + 1, distances[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && IsSame(left[i - 1], right[j - 2]) && IsSame(left[i - 2], right[j - 1])) {
                distances[i][j] = std::min(distances[i][j], distances[i - 2][j - 2] + 1);
            }
        }
    }
    return distances[left.size()][right.size()];
}

} // namespace

std::string Suggestion(std::string_view word, const std::vector<std::string>& known)
{
    // Beyond this a word is another one, and looking would take long.
    constexpr std::size_t kLongestWord = 64;
    if (word.size() > kLongestWord || known.empty()) {
        return {};
    }
    const auto nearest = std::min_element(known.begin(), known.end(), [word](const auto& left, const auto& right) {
        return Distance(word, left) < Distance(word, right);
    });
    const bool isNear = Distance(word, *nearest) <= std::max<std::size_t>(1, word.size() / 3);
    return isNear ? "; did you mean '" + *nearest + "'?" : std::string();
}

} // namespace ctl
