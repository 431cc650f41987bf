// The data files of AmporaSrv for C++17 programs: ampora.h with objects that free themselves and exceptions.
// Header-only; link it as ampora.h is linked. The contracts, of threads as well, are those of ampora.h.
#ifndef AMPORA_HPP
#define AMPORA_HPP

#include "ampora.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace ampora {

// An error of ampora.h; what() is its text.
class error : public std::runtime_error {
public:
    explicit error(std::int32_t code) : std::runtime_error(ampora_error_text(code)), m_code(code) {}
    // AMPORA_ERROR_...
    std::int32_t code() const noexcept { return m_code; }

private:
    std::int32_t m_code;
};

namespace detail {

inline void check(std::int32_t result)
{
    if (result != AMPORA_OK) {
        throw error(result);
    }
}

// Null for an empty text, which stands for the default folder.
inline const char* folder_or_default(const std::string& folder) { return folder.empty() ? nullptr : folder.c_str(); }

// The text of a function that fills a buffer.
template <class Fill>
std::string text_of(Fill fill)
{
    std::size_t needed = 0;
    const std::int32_t result = fill(nullptr, 0, &needed);
    if (result != AMPORA_ERROR_SIZE) {
        throw error(result);
    }
    std::string text(needed, '\0');
    check(fill(&text[0], text.size(), nullptr));
    text.pop_back();
    return text;
}

} // namespace detail

// The numbers of the companies and the codes of the kinds, in the order of every list.
inline std::vector<std::int32_t> companies()
{
    std::vector<std::int32_t> numbers;
    for (std::uint32_t i = 0; i < ampora_company_count(); ++i) {
        numbers.push_back(ampora_company_at(i));
    }
    return numbers;
}
inline std::vector<std::uint32_t> kinds()
{
    std::vector<std::uint32_t> codes;
    for (std::uint32_t i = 0; i < ampora_kind_count(); ++i) {
        codes.push_back(ampora_kind_at(i));
    }
    return codes;
}

// As ampora_default_folder and ampora_path; throw error.
inline std::string default_folder()
{
    return detail::text_of([](char* buffer, std::size_t size, std::size_t* needed) {
        return ampora_default_folder(buffer, size, needed);
    });
}
inline std::string path(const std::string& folder, std::int32_t company, std::uint32_t kind)
{
    return detail::text_of([&](char* buffer, std::size_t size, std::size_t* needed) {
        return ampora_path(detail::folder_or_default(folder), company, kind, buffer, size, needed);
    });
}

// The content of one data file. Moved, not copied; after a move it may only be destroyed or assigned to.
class file {
public:
    // As ampora_read. folder: empty for the default one. Throws error.
    file(const std::string& folder, std::int32_t company, std::uint32_t kind)
    {
        ampora_file* content = nullptr;
        detail::check(ampora_read(detail::folder_or_default(folder), company, kind, &content));
        m_file.reset(content);
    }
    file(std::int32_t company, std::uint32_t kind) : file(std::string(), company, kind) {}

    ampora_file_info info() const
    {
        ampora_file_info info{};
        info.size = sizeof(info);
        detail::check(ampora_file_get_info(m_file.get(), &info));
        return info;
    }
    // The records; they live as long as the file.
    const ampora_record* begin() const noexcept { return ampora_file_records(m_file.get()); }
    const ampora_record* end() const noexcept { return begin() == nullptr ? nullptr : begin() + size(); }
    std::size_t size() const noexcept { return ampora_file_count(m_file.get()); }
    // The record that starts latest; null when there is none.
    const ampora_record* newest() const noexcept { return ampora_file_newest(m_file.get()); }

private:
    struct free {
        void operator()(ampora_file* content) const noexcept { ampora_file_free(content); }
    };
    std::unique_ptr<ampora_file, free> m_file;
};

// The watch of a folder. Moved, not copied; after a move it may only be destroyed or assigned to.
class watch {
public:
    // As ampora_watch_open. folder: empty for the default one. Throws error.
    explicit watch(const std::string& folder = std::string())
    {
        ampora_watch* opened = nullptr;
        detail::check(ampora_watch_open(detail::folder_or_default(folder), &opened));
        m_watch.reset(opened);
    }

    // Waits for a change: without limit, or whether there was one within this time. Throw error.
    void wait() { detail::check(ampora_watch_wait(m_watch.get(), -1)); }
    bool wait_for(std::chrono::milliseconds timeout)
    {
        constexpr std::chrono::milliseconds longest(std::numeric_limits<std::int32_t>::max());
        const auto limited = std::max(std::chrono::milliseconds(0), std::min(timeout, longest));
        const std::int32_t result = ampora_watch_wait(m_watch.get(), static_cast<std::int32_t>(limited.count()));
        if (result != AMPORA_TIMED_OUT) {
            detail::check(result);
        }
        return result == AMPORA_OK;
    }
    // As ampora_watch_event.
    std::intptr_t event() const noexcept { return ampora_watch_event(m_watch.get()); }

private:
    struct free {
        void operator()(ampora_watch* opened) const noexcept { ampora_watch_free(opened); }
    };
    std::unique_ptr<ampora_watch, free> m_watch;
};

} // namespace ampora

#endif
