#include "testing/attack/Attack.h"

#include <algorithm>
#include <atomic>
#include <iostream>
#include <thread>

namespace attack {

namespace {

constexpr int kProgressParts = 10;

class CWork {
public:
    CWork(Outcome& outcome, std::size_t count) : m_outcome(outcome), m_count(count) {}

    // The next attack's number; none when all have been made.
    std::optional<std::size_t> Next()
    {
        const std::size_t number = m_next++;
        if (number < m_count && number * kProgressParts / m_count != (number + 1) * kProgressParts / m_count) {
            std::cerr << m_outcome.title + ": " + std::to_string(number + 1) + " of " + std::to_string(m_count) + "\n";
        }
        return number < m_count ? std::optional(number) : std::nullopt;
    }

    void Add(const Outcome& part)
    {
        const std::scoped_lock lock(m_mutex);
        for (const auto& [name, count] : part.counts) {
            m_outcome.counts[name] += count;
        }
        m_outcome.findings.insert(m_outcome.findings.end(), part.findings.begin(), part.findings.end());
    }

private:
    Outcome& m_outcome;
    const std::size_t m_count;
    std::atomic<std::size_t> m_next = 0;
    std::mutex m_mutex;
};

} // namespace

void CountFiles(const FileCounts& files, Outcome& outcome)
{
    outcome.counts[figure::kOld] += files.old;
    outcome.counts[figure::kRenewed] += files.renewed;
    outcome.counts[figure::kCut] += files.cut;
    if (files.thinned != 0) {
        outcome.counts[figure::kThinned] += files.thinned;
    }
    if (files.cut > 1) {
        throw CFinding(std::to_string(files.cut) + " files are cut off");
    }
}

Outcome MakeAttacks(const std::string& title, std::size_t count,
                    const std::function<void(CTarget&, std::size_t, Outcome&)>& attack,
                    const std::function<std::string(std::size_t)>& name)
{
    Outcome outcome{title, {{figure::kAttacks, static_cast<long>(count)}}, {}};
    CWork work(outcome, count);
    const auto run = [&] {
        std::unique_ptr<CTarget> target;
        Outcome part;
        while (const std::optional<std::size_t> number = work.Next()) {
            try {
                if (!target) {
                    target = std::make_unique<CTarget>();
                    target->Recover();
                }
                attack(*target, *number, part);
            } catch (const std::exception& error) {
                part.findings.push_back(title + ", " + name(*number) + ": " + error.what());
                std::cerr << part.findings.back() + "\n";
                target.reset(); // whatever state it is in
            }
        }
        work.Add(part);
    };
    std::vector<std::thread> others(std::max(std::thread::hardware_concurrency(), 1U));
    for (std::thread& other : others) {
        other = std::thread(run);
    }
    for (std::thread& other : others) {
        other.join();
    }
    return outcome;
}

} // namespace attack
