#include "server/live/Archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <boost/crc.hpp>
#include <cstdint>
#include <memory>
#include <new>

namespace reportd {
namespace {

struct ReaderCloser {
    void operator()(archive* reader) const { archive_read_free(reader); }
};
using Reader = std::unique_ptr<archive, ReaderCloser>;

struct WriterCloser {
    void operator()(archive* writer) const { archive_write_free(writer); }
};
using Writer = std::unique_ptr<archive, WriterCloser>;

struct EntryCloser {
    void operator()(archive_entry* entry) const { archive_entry_free(entry); }
};
using Entry = std::unique_ptr<archive_entry, EntryCloser>;

std::string ReasonOf(archive* object)
{
    const char* const text = archive_error_string(object);
    return text == nullptr ? "damaged" : text;
}

Reader MakeReader()
{
    Reader reader(archive_read_new());
    if (!reader) {
        throw std::bad_alloc();
    }
    return reader;
}

void Open(archive* reader, std::string_view bytes)
{
    if (archive_read_open_memory(reader, bytes.data(), bytes.size()) != ARCHIVE_OK) {
        throw CArchiveError(ReasonOf(reader));
    }
}

// The next member; null after the last one.
archive_entry* NextEntry(archive* reader)
{
    archive_entry* entry = nullptr;
    const int result = archive_read_next_header(reader, &entry);
    if (result == ARCHIVE_EOF) {
        return nullptr;
    }
    if (result != ARCHIVE_OK && result != ARCHIVE_WARN) { // warnings concern names in other encodings
        throw CArchiveError(ReasonOf(reader));
    }
    return entry;
}

// The bytes of the current member; its fault when that cannot be.
std::string ReadData(archive* reader, std::string* fault)
{
    std::string data;
    std::array<char, 65536> part{};
    for (;;) {
        const la_ssize_t size = archive_read_data(reader, part.data(), part.size());
        if (size == 0) {
            return data;
        }
        if (size < 0) {
            *fault = ReasonOf(reader);
            return {};
        }
        data.append(part.data(), static_cast<std::size_t>(size));
        if (data.size() > kMostMemberBytes) {
            *fault = "holds more than 1 MiB";
            return {};
        }
    }
}

std::string NameOf(archive_entry* entry)
{
    const char* name = archive_entry_pathname(entry); // null when this locale cannot express it
    if (name == nullptr) {
        name = archive_entry_pathname_utf8(entry);
    }
    const std::string_view path = name == nullptr ? "" : name;
    return std::string(path.substr(path.rfind('/') + 1)); // npos + 1 is 0
}

// The number of four bytes that begins there, lowest byte first.
std::uint32_t NumberAt(std::string_view bytes, std::size_t at)
{
    std::uint32_t number = 0;
    for (std::size_t i = 4; i > 0; --i) {
        number = number << 8U | static_cast<unsigned char>(bytes[at + i - 1]);
    }
    return number;
}

// Whether the data fits the checksum and the size at the end of the compressed bytes (RFC 1952, 2.3.1), which the
// library does not compare.
bool FitsTrailer(std::string_view data, std::string_view compressed)
{
    constexpr std::size_t kTrailerSize = 8;
    if (compressed.size() < kTrailerSize) {
        return false;
    }
    boost::crc_32_type checksum;
    checksum.process_bytes(data.data(), data.size());
    return NumberAt(compressed, compressed.size() - kTrailerSize) == checksum.checksum() &&
           NumberAt(compressed, compressed.size() - kTrailerSize / 2) == data.size();
}

} // namespace

bool LooksLikeZip(std::string_view bytes)
{
    return bytes.starts_with("PK\x03\x04") || bytes.starts_with("PK\x05\x06"); // the second one is empty
}

bool LooksLikeGzip(std::string_view bytes) { return bytes.starts_with("\x1F\x8B"); }

void ReadZip(std::string_view bytes, const std::function<void(const ArchiveMember&)>& visit)
{
    const Reader reader = MakeReader();
    archive_read_support_format_zip(reader.get());
    Open(reader.get(), bytes);
    std::size_t entries = 0; // folders included, or they could be without end
    while (archive_entry* const entry = NextEntry(reader.get())) {
        if (++entries > kMostMembers) {
            throw CArchiveError("has more than " + std::to_string(kMostMembers) + " members");
        }
        if (archive_entry_filetype(entry) != AE_IFREG) {
            continue;
        }
        ArchiveMember member;
        member.name = NameOf(entry);
        member.bytes = ReadData(reader.get(), &member.fault);
        visit(member);
    }
}

std::string ReadGzip(std::string_view bytes)
{
    const Reader reader = MakeReader();
    archive_read_support_filter_gzip(reader.get());
    archive_read_support_format_raw(reader.get());
    archive_read_support_format_empty(reader.get());
    Open(reader.get(), bytes);
    if (archive_filter_code(reader.get(), 0) != ARCHIVE_FILTER_GZIP) {
        throw CArchiveError("not compressed by gzip");
    }
    std::string fault;
    std::string data;
    if (NextEntry(reader.get()) != nullptr) { // there is none when nothing was compressed
        data = ReadData(reader.get(), &fault);
    }
    if (!fault.empty()) {
        throw CArchiveError(fault);
    }
    if (!FitsTrailer(data, bytes)) {
        throw CArchiveError("damaged: the checksum is another");
    }
    return data;
}

std::string MakeGzip(std::string_view bytes)
{
    const Writer writer(archive_write_new());
    const Entry entry(archive_entry_new());
    if (!writer || !entry) {
        throw std::bad_alloc();
    }
    const auto require = [&](bool isDone) {
        if (!isDone) {
            throw std::runtime_error("cannot compress: " + ReasonOf(writer.get()));
        }
    };
    require(archive_write_add_filter_gzip(writer.get()) == ARCHIVE_OK);
    require(archive_write_set_format_raw(writer.get()) == ARCHIVE_OK);
    require(archive_write_set_bytes_per_block(writer.get(), 0) == ARCHIVE_OK);
    constexpr std::size_t kOverhead = 4096; // of gzip for bytes that do not compress: far less
    std::string compressed(bytes.size() + bytes.size() / 100 + kOverhead, '\0');
    std::size_t used = 0;
    require(archive_write_open_memory(writer.get(), compressed.data(), compressed.size(), &used) == ARCHIVE_OK);
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    require(archive_write_header(writer.get(), entry.get()) == ARCHIVE_OK);
    require(archive_write_data(writer.get(), bytes.data(), bytes.size()) == static_cast<la_ssize_t>(bytes.size()));
    require(archive_write_close(writer.get()) == ARCHIVE_OK);
    compressed.resize(used);
    return compressed;
}

} // namespace reportd
