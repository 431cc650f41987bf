#include "ctl/OutputFile.h"

#include "platform/Text.h"

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <random>

namespace ctl {

namespace {

namespace fs = std::filesystem;

constexpr const char* kStandardOutput = "-";

// A name beside the file that nobody else has. It does not end as the file's own, for which some program may look.
fs::path NewNameFor(const fs::path& path)
{
    std::array<char, 8> digits{};
    std::random_device random;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), random() & 0xFFFFFFFFU, 16).ptr;
    fs::path name = path;
    name += ".new-" + std::string(digits.data(), end);
    return name;
}

bool WriteTo(const fs::path& path, const std::string& content)
{
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << content;
    stream.close();
    return !stream.fail();
}

// False on failure; then an old file is as it was.
bool ReplaceFile(const fs::path& path, const std::string& content)
{
    const fs::path fresh = NewNameFor(path);
    std::error_code error;
    if (WriteTo(fresh, content)) {
        fs::rename(fresh, path, error);
        if (!error) {
            return true;
        }
    }
    fs::remove(fresh, error);
    return false;
}

bool WriteFile(const fs::path& path, const std::string& content)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    // A device is written to: a rename would put a file in its place.
    return fs::exists(status) && !fs::is_regular_file(status) ? WriteTo(path, content) : ReplaceFile(path, content);
}

} // namespace

CLI::Option& AddOutputFile(CLI::App& verb, const std::string& option, std::string& file, const std::string& description)
{
    return *verb.add_option(option, file, description + "; - for standard output")
                ->type_name("FILE")
                ->check([](const std::string& name) {
                    return name.empty() ? std::string("the name of a file is needed") : std::string();
                });
}

void WriteOutputFile(const std::string& file, const std::string& content, const Console& console)
{
    if (file == kStandardOutput) {
        console.out << content;
    } else if (!WriteFile(std::u8string(file.begin(), file.end()), content)) {
        throw CFailure(platform::DecodeUtf8(file) + L" cannot be written");
    }
}

} // namespace ctl
