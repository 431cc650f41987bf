// A user's session of a test's own.
#pragma once

#include "testing/ScratchFolder.h"

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace testing_support {

// As long as it lives, the environment names folders inside a scratch folder for everything that this backend looks up
// there: session objects, lock files, settings of both hives and common application data. One at a time, made and
// destroyed while no other thread runs.
class CScratchSession {
public:
    CScratchSession();
    ~CScratchSession();
    CScratchSession(const CScratchSession&) = delete;
    CScratchSession& operator=(const CScratchSession&) = delete;

    // Sets one variable, null: removes it, until the session goes.
    void SetVariable(const std::string& name, const char* value);

    // Existing folders: one for anything, and those where the objects' files are. SessionFolder is made by the backend.
    std::filesystem::path Folder() const { return m_folder.Path(); }
    std::filesystem::path LockFolder() const { return Folder() / "lock"; }
    std::filesystem::path RuntimeFolder() const { return Folder() / "runtime"; }
    std::filesystem::path SessionFolder() const { return RuntimeFolder() / "AmporaSrv"; }
    // Folders not made yet.
    std::filesystem::path DataFolder() const { return Folder() / "data"; }
    // The settings file of each hive; its folder exists.
    std::filesystem::path UserSettings() const { return Folder() / "user" / "AmporaSrv" / "settings.reg"; }
    std::filesystem::path MachineSettings() const { return Folder() / "machine" / "AmporaSrv" / "settings.reg"; }

private:
    CScratchFolder m_folder;
    std::map<std::string, std::optional<std::string>> m_before; // what the variables were
};

} // namespace testing_support
