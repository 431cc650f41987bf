#include "testing/Zip.h"

#include <archive.h>
#include <archive_entry.h>
#include <memory>
#include <stdexcept>

namespace testing_support {

std::string MakeZip(const std::vector<std::pair<std::string, std::string>>& members)
{
    std::string bytes;
    const std::unique_ptr<archive, int (*)(archive*)> writer(archive_write_new(), archive_write_free);
    const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(), archive_entry_free);
    const auto require = [](bool isDone) {
        if (!isDone) {
            throw std::runtime_error("cannot write a ZIP archive");
        }
    };
    const auto append = [](archive*, void* target, const void* part, std::size_t size) {
        static_cast<std::string*>(target)->append(static_cast<const char*>(part), size);
        return static_cast<la_ssize_t>(size);
    };
    require(writer && entry && archive_write_set_format_zip(writer.get()) == ARCHIVE_OK);
    require(archive_write_set_bytes_in_last_block(writer.get(), 1) == ARCHIVE_OK); // no padding behind it
    require(archive_write_open(writer.get(), &bytes, nullptr, append, nullptr) == ARCHIVE_OK);
    for (const auto& [path, content] : members) {
        archive_entry_clear(entry.get());
        archive_entry_set_pathname(entry.get(), path.c_str());
        archive_entry_set_filetype(entry.get(), path.ends_with('/') ? AE_IFDIR : AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
        require(archive_write_header(writer.get(), entry.get()) == ARCHIVE_OK);
        require(archive_write_data(writer.get(), content.data(), content.size()) ==
                static_cast<la_ssize_t>(content.size()));
    }
    require(archive_write_close(writer.get()) == ARCHIVE_OK);
    return bytes;
}

} // namespace testing_support
