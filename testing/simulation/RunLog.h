// What a simulation writes down: the same text for the same seed and options.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace simulation {

// FNV-1a, 64 bits, of these bytes after those that gave the hash before.
inline constexpr std::uint64_t kHashOfNothing = 0xCBF29CE484222325;
template <class Bytes>
std::uint64_t HashOf(const Bytes& bytes, std::uint64_t before = kHashOfNothing)
{
    std::uint64_t hash = before;
    for (const auto byte : bytes) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    }
    return hash;
}

// Lines with the virtual time at which they were written. Their hash and length are always known; the text itself only
// when it is kept.
class CRunLog {
public:
    explicit CRunLog(bool keepsText) : m_keepsText(keepsText) {}

    void Add(std::int64_t nowMs, std::string_view line);

    // Over all lines.
    std::uint64_t Hash() const { return m_hash; }
    std::uint64_t Length() const { return m_length; }
    const std::string& Text() const { return m_text; }

private:
    bool m_keepsText;
    std::uint64_t m_hash = kHashOfNothing;
    std::uint64_t m_length = 0;
    std::string m_text = {};
};

} // namespace simulation
