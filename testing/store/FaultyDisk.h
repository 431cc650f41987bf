// A disk that fails, and loses what was not synced, under SQLite.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace testing_support {

// While it lives, files that SQLite opens lie on the real disk, but go through this object. One at a time; it must
// outlive the connections that were opened meanwhile. One thread, and one connection to a file at a time.
//
// A change is a write, a truncation, a sync or a deletion of a file. The shared-memory index of the write-ahead log is
// memory and not concerned.
class CFaultyDisk {
public:
    CFaultyDisk();
    ~CFaultyDisk();
    CFaultyDisk(const CFaultyDisk&) = delete;
    CFaultyDisk& operator=(const CFaultyDisk&) = delete;

    // From the nth change from now (1: the next) on every change fails with this result code of SQLite, until Repair.
    void FailFrom(unsigned nth, int code);
    void Repair();
    // Whether a change has failed since FailFrom.
    bool HasFailed() const;

    // Remembers, right before the nth change from now, what a power cut at that moment would leave.
    void CutPowerAt(unsigned nth);
    bool HasCutPower() const;
    // Writes that into another folder, for the files of a folder: each as it was synced last, and of the changes since
    // then some, which ones depends on the seed.
    void WriteRemains(const std::filesystem::path& from, const std::filesystem::path& to, unsigned seed) const;

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};

} // namespace testing_support
