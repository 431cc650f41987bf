#include "testing/Zip.h"

#include <archive.h>
#include <archive_entry.h>
#include <memory>
#include <stdexcept>

namespace testing_support {

namespace {

using WriterPtr = std::unique_ptr<archive, int (*)(archive*)>;
using EntryPtr = std::unique_ptr<archive_entry, void (*)(archive_entry*)>;

void Require(bool isDone)
{
    if (!isDone) {
        throw std::runtime_error("cannot write an archive");
    }
}

la_ssize_t AppendPart(archive* /*writer*/, void* target, const void* part, std::size_t size)
{
    static_cast<std::string*>(target)->append(static_cast<const char*>(part), size);
    return static_cast<la_ssize_t>(size);
}

// Begins to write into bytes.
void Open(archive* writer, std::string& bytes)
{
    Require(archive_write_set_bytes_in_last_block(writer, 1) == ARCHIVE_OK); // no padding behind it
    Require(archive_write_open(writer, &bytes, nullptr, AppendPart, nullptr) == ARCHIVE_OK);
}

void WriteMember(archive* writer, archive_entry* entry, const std::string& path, const std::string& content)
{
    archive_entry_clear(entry);
    archive_entry_set_pathname(entry, path.c_str());
    archive_entry_set_filetype(entry, path.ends_with('/') ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(entry, 0644);
    archive_entry_set_size(entry, static_cast<la_int64_t>(content.size()));
    Require(archive_write_header(writer, entry) == ARCHIVE_OK);
    Require(archive_write_data(writer, content.data(), content.size()) == static_cast<la_ssize_t>(content.size()));
}

} // namespace

std::string MakeZip(const std::vector<std::pair<std::string, std::string>>& members)
{
    std::string bytes;
    const WriterPtr writer(archive_write_new(), archive_write_free);
    const EntryPtr entry(archive_entry_new(), archive_entry_free);
    Require(writer && entry && archive_write_set_format_zip(writer.get()) == ARCHIVE_OK);
    Open(writer.get(), bytes);
    for (const auto& [path, content] : members) {
        WriteMember(writer.get(), entry.get(), path, content);
    }
    Require(archive_write_close(writer.get()) == ARCHIVE_OK);
    return bytes;
}

std::string MakeGzip(const std::string& content)
{
    std::string bytes;
    const WriterPtr writer(archive_write_new(), archive_write_free);
    const EntryPtr entry(archive_entry_new(), archive_entry_free);
    Require(writer && entry && archive_write_set_format_raw(writer.get()) == ARCHIVE_OK);
    Require(archive_write_add_filter_gzip(writer.get()) == ARCHIVE_OK);
    Open(writer.get(), bytes);
    WriteMember(writer.get(), entry.get(), "content", content);
    Require(archive_write_close(writer.get()) == ARCHIVE_OK);
    return bytes;
}

} // namespace testing_support
