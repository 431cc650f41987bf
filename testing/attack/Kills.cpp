// Attacks by SIGKILL.
#include "testing/attack/Attack.h"

#include <chrono>
#include <random>

namespace attack {

using std::chrono::microseconds;
using std::chrono::steady_clock;
using system_test::CCopy;

namespace {

constexpr unsigned kRequestsOfPass = 42; // 21 files, two days each
constexpr std::chrono::seconds kPassLimit{60};
constexpr unsigned kWritesOfPass = 90; // at least
// What starting the program takes at least; what it does with an answer: it receives and reads it and may write a file.
constexpr unsigned kStartUs = 30'000;
constexpr unsigned kAnswerUs = 1'000;

// Waits without a rest, which would be longer than what is waited for.
template <class Condition>
void Spin(Condition isMet)
{
    const auto deadline = steady_clock::now() + kPassLimit;
    while (!isMet()) {
        if (steady_clock::now() > deadline) {
            throw CFinding("it makes no pass");
        }
    }
}

void SpinFor(microseconds time)
{
    Spin([end = steady_clock::now() + time] { return steady_clock::now() >= end; });
}

// Waits for a random moment of a pass.
void AwaitAnswer(CTarget& target, const CCopy& copy, std::mt19937& random)
{
    const auto requests = static_cast<int>(random() % (kRequestsOfPass + 1));
    target.BeginPass();
    if (!target.Rig().Do("set AmporaSrvUpdateEvent")) {
        throw CFinding("it has no update event: " + copy.Text());
    }
    Spin([&] { return target.RequestCount() >= requests; });
    SpinFor(microseconds(random() % kAnswerUs));
}

} // namespace

Outcome Kill(std::size_t count, unsigned seed)
{
    const auto attack = [seed](CTarget& target, std::size_t i, Outcome& outcome) {
        std::mt19937 random(seed + static_cast<unsigned>(i));
        const std::size_t kind = i % 5; // 0: at the start; 1, 2: in a pass; 3, 4: when it writes
        target.BeginPass();
        const std::unique_ptr<CCopy> copy =
            kind < 3 ? target.Rig().Start()
                     : StartTraced(target, "-e trace=write -e inject=write:signal=KILL:when=" +
                                               std::to_string(random() % kWritesOfPass + 1));
        if (kind == 0) {
            SpinFor(microseconds(random() % kStartUs));
        } else {
            CTarget::AwaitRest(*copy);
        }
        if (kind == 1 || kind == 2) {
            AwaitAnswer(target, *copy, random);
        }
        copy->Kill();
        outcome.counts[target.RequestCount() == 0 ? figure::kKilledEarly : figure::kKilledInPass] += 1;
        CountFiles(target.LookAtFiles(), outcome);
        target.Recover();
        ++outcome.counts[figure::kNextCopy];
    };
    return MakeAttacks("kills", count, attack, [seed](std::size_t i) { return "seed " + std::to_string(seed + i); });
}

} // namespace attack
