// The functions of ampora.h over the reader of the data files. Each catches what it could throw, since its callers may
// be of another language.
#include "format/Catalogue.h"
#include "format/DataFilePath.h"
#include "format/DataFileReader.h"
#include "platform/Files.h"
#include "platform/FolderWatch.h"
#include "platform/LastError.h"
#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

// What others see; all else is hidden.
#pragma GCC visibility push(default)
#include "format/include/ampora.h"
#pragma GCC visibility pop

// The header's numbers are those of the catalogue and the reader, and a record is copied as it lies in the file.
static_assert(AMPORA_COMPANY_TOHOKU == catalogue::kTohoku && AMPORA_COMPANY_TOKYO == catalogue::kTokyo &&
              AMPORA_COMPANY_CHUBU == catalogue::kChubu && AMPORA_COMPANY_KANSAI == catalogue::kKansai &&
              AMPORA_COMPANY_KYUSHU == catalogue::kKyushu);
static_assert(AMPORA_KIND_INSTANT_USAGE == catalogue::kInstantUsage &&
              AMPORA_KIND_ACTUAL_USAGE == catalogue::kActualUsage &&
              AMPORA_KIND_ESTIMATED_USAGE == catalogue::kEstimatedUsage &&
              AMPORA_KIND_PEAK_SUPPLY == catalogue::kPeakSupply && AMPORA_KIND_PEAK_DEMAND == catalogue::kPeakDemand);
static_assert(AMPORA_HELD_LIMIT_MS == kHeldLimitMs);
static_assert(sizeof(ampora_time) == sizeof(SYSTEMTIME) && sizeof(ampora_record) == sizeof(_AmporaOneData));

struct ampora_file {
    int32_t company = 0;
    DataFileHeader header = {};
    std::vector<ampora_record> records;
    const ampora_record* newest = nullptr;
};

struct ampora_watch {
    platform::FolderWatchPtr watch;
};

namespace {

// By result.
constexpr std::array kTexts = {
    "success",
    "nothing has changed in that time",
    "null where none is allowed, or a number out of its range",
    "no company has this number",
    "no kind of data has this code",
    "there is no such folder",
    "there is no such file",
    "it is being written by another program",
    "the system refuses to read it",
    "it is shorter than a header",
    "it has another format version",
    "it holds another kind of data than its name says",
    "a part of its header that must be 0 is not",
    "its length is not what its record count makes",
    "the buffer or structure is too small",
    "out of memory",
    "the system cannot watch the folder",
};
static_assert(kTexts.size() == AMPORA_ERROR_WATCH + 1);

// The result of a function body that may throw.
template <class Body>
int32_t Guarded(Body body) noexcept
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return AMPORA_ERROR_MEMORY;
    }
}

int32_t ResultOf(DataFileFault fault)
{
    switch (fault) {
    case DataFileFault::kNone:
        return AMPORA_OK;
    case DataFileFault::kMissing:
        return AMPORA_ERROR_MISSING;
    case DataFileFault::kHeldByWriter:
        return AMPORA_ERROR_HELD;
    case DataFileFault::kTooShort:
        return AMPORA_ERROR_SHORT;
    case DataFileFault::kForeignVersion:
        return AMPORA_ERROR_VERSION;
    case DataFileFault::kForeignDataType:
        return AMPORA_ERROR_FOREIGN_KIND;
    case DataFileFault::kForeignReserved:
        return AMPORA_ERROR_RESERVED;
    case DataFileFault::kTorn:
        return AMPORA_ERROR_TORN;
    case DataFileFault::kUnreadable:
        break;
    }
    return AMPORA_ERROR_UNREADABLE;
}

// The folder that a caller names, null for the default one; empty when that is unknown.
CString FolderOf(const char* folder) { return folder == nullptr ? DataFolder() : platform::DecodeUtf8(folder); }

int32_t CheckCompanyAndKind(int32_t company, uint32_t kind)
{
    if (catalogue::FindCompany(company) == nullptr) {
        return AMPORA_ERROR_COMPANY;
    }
    return catalogue::FindKind(kind) == nullptr ? AMPORA_ERROR_KIND : AMPORA_OK;
}

int32_t CopyText(const CString& text, char* buffer, size_t size, size_t* needed)
{
    const std::string bytes = platform::EncodeUtf8(text);
    if (needed != nullptr) {
        *needed = bytes.size() + 1;
    }
    if (bytes.size() >= size) {
        return AMPORA_ERROR_SIZE;
    }
    std::memcpy(buffer, bytes.c_str(), bytes.size() + 1);
    return AMPORA_OK;
}

ampora_file* MakeFile(int32_t company, const DataFile& content)
{
    auto file = std::make_unique<ampora_file>();
    file->company = company;
    file->header = content.header;
    if (!content.records.empty()) {
        file->records.resize(content.records.size());
        std::memcpy(file->records.data(), content.records.data(), content.records.size() * sizeof(ampora_record));
        const auto newest = std::ranges::max_element(content.records, StartsEarlier);
        file->newest = &file->records[static_cast<std::size_t>(newest - content.records.begin())];
    }
    return file.release();
}

} // namespace

const char* ampora_version() { return AMPORA_VERSION; }

const char* ampora_error_text(int32_t result)
{
    const auto index = static_cast<uint32_t>(result);
    return index < kTexts.size() ? kTexts[index] : "unknown error";
}

uint32_t ampora_company_count() { return catalogue::kCompanies.size(); }

int32_t ampora_company_at(uint32_t position)
{
    return position < catalogue::kCompanies.size() ? catalogue::kCompanies[position].siteNumber : 0;
}

const char* ampora_company_name(int32_t company)
{
    const catalogue::Company* const found = catalogue::FindCompany(company);
    return found == nullptr ? nullptr : found->name.Narrow().data();
}

const char* ampora_company_key(int32_t company)
{
    const catalogue::Company* const found = catalogue::FindCompany(company);
    return found == nullptr ? nullptr : found->key.Narrow().data();
}

int32_t ampora_company_of_key(const char* key)
{
    const auto* const found = std::ranges::find_if(catalogue::kCompanies, [key](const catalogue::Company& company) {
        return key != nullptr && company.key.Narrow() == key;
    });
    return found == catalogue::kCompanies.end() ? 0 : found->siteNumber;
}

uint32_t ampora_kind_count() { return catalogue::kKinds.size(); }

uint32_t ampora_kind_at(uint32_t position)
{
    return position < catalogue::kKinds.size() ? catalogue::kKinds[position].dataType : 0;
}

const char* ampora_kind_name(uint32_t kind)
{
    const catalogue::Kind* const found = catalogue::FindKind(kind);
    return found == nullptr ? nullptr : found->name.Narrow().data();
}

const char* ampora_kind_key(uint32_t kind)
{
    const catalogue::Kind* const found = catalogue::FindKind(kind);
    return found == nullptr ? nullptr : found->element.Narrow().data();
}

uint32_t ampora_kind_of_key(const char* key)
{
    const auto* const found = std::ranges::find_if(catalogue::kKinds, [key](const catalogue::Kind& kind) {
        return key != nullptr && kind.element.Narrow() == key;
    });
    return found == catalogue::kKinds.end() ? 0 : found->dataType;
}

int32_t ampora_default_folder(char* buffer, size_t size, size_t* needed)
{
    if (buffer == nullptr && size != 0) {
        return AMPORA_ERROR_ARGUMENT;
    }
    return Guarded([&] {
        const CString folder = DataFolder();
        return folder.empty() ? static_cast<int32_t>(AMPORA_ERROR_FOLDER) : CopyText(folder, buffer, size, needed);
    });
}

int32_t ampora_path(const char* folder, int32_t company, uint32_t kind, char* buffer, size_t size, size_t* needed)
{
    if (buffer == nullptr && size != 0) {
        return AMPORA_ERROR_ARGUMENT;
    }
    return Guarded([&]() -> int32_t {
        const int32_t result = CheckCompanyAndKind(company, kind);
        if (result != AMPORA_OK) {
            return result;
        }
        const CString place = FolderOf(folder);
        if (place.empty()) {
            return AMPORA_ERROR_FOLDER;
        }
        return CopyText(DataFileIn(place, company, kind), buffer, size, needed);
    });
}

int32_t ampora_read(const char* folder, int32_t company, uint32_t kind, ampora_file** file)
{
    if (file == nullptr) {
        return AMPORA_ERROR_ARGUMENT;
    }
    *file = nullptr;
    return Guarded([&]() -> int32_t {
        const int32_t known = CheckCompanyAndKind(company, kind);
        if (known != AMPORA_OK) {
            return known;
        }
        const CString place = FolderOf(folder);
        if (place.empty()) {
            return AMPORA_ERROR_FOLDER;
        }
        const DataFile content = ReadDataFile(DataFileIn(place, company, kind), kind);
        if (content.fault == DataFileFault::kMissing && !platform::PathExists(place)) {
            return AMPORA_ERROR_FOLDER;
        }
        const int32_t result = ResultOf(content.fault);
        if (result == AMPORA_OK) {
            *file = MakeFile(company, content);
        }
        return result;
    });
}

void ampora_file_free(ampora_file* file) { delete file; }

int32_t ampora_file_get_info(const ampora_file* file, ampora_file_info* info)
{
    if (file == nullptr || info == nullptr) {
        return AMPORA_ERROR_ARGUMENT;
    }
    const uint32_t size = info->size;
    if (size < sizeof(*info)) {
        return AMPORA_ERROR_SIZE;
    }
    std::memset(info, 0, size);
    info->size = size;
    info->company = file->company;
    info->kind = file->header.dataType;
    info->count = file->header.count;
    std::memcpy(&info->written, &file->header.writeTime, sizeof(info->written));
    return AMPORA_OK;
}

uint32_t ampora_file_count(const ampora_file* file) { return file == nullptr ? 0 : file->header.count; }

const ampora_record* ampora_file_records(const ampora_file* file)
{
    return file == nullptr || file->records.empty() ? nullptr : file->records.data();
}

const ampora_record* ampora_file_newest(const ampora_file* file) { return file == nullptr ? nullptr : file->newest; }

int32_t ampora_watch_open(const char* folder, ampora_watch** watch)
{
    if (watch == nullptr) {
        return AMPORA_ERROR_ARGUMENT;
    }
    *watch = nullptr;
    return Guarded([&]() -> int32_t {
        const CString place = FolderOf(folder);
        if (place.empty()) {
            return AMPORA_ERROR_FOLDER;
        }
        auto opened = std::make_unique<ampora_watch>();
        opened->watch = platform::OpenFolderWatch(place);
        if (opened->watch == nullptr) {
            const DWORD error = platform::GetLastErrorCode();
            const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
            return isMissing ? AMPORA_ERROR_FOLDER : AMPORA_ERROR_WATCH;
        }
        *watch = opened.release();
        return AMPORA_OK;
    });
}

int32_t ampora_watch_wait(ampora_watch* watch, int32_t timeout_ms)
{
    if (watch == nullptr) {
        return AMPORA_ERROR_ARGUMENT;
    }
    return Guarded([&]() -> int32_t {
        const DWORD timeoutMs = timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms);
        switch (platform::WaitForFolderChange(watch->watch, timeoutMs)) {
        case WAIT_OBJECT_0:
            return AMPORA_OK;
        case WAIT_TIMEOUT:
            return AMPORA_TIMED_OUT;
        default:
            return AMPORA_ERROR_WATCH;
        }
    });
}

intptr_t ampora_watch_event(const ampora_watch* watch)
{
    return watch == nullptr ? -1 : platform::EventSourceOf(watch->watch);
}

void ampora_watch_free(ampora_watch* watch) { delete watch; }
