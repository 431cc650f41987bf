// Gives a fuzzer, built by any compiler, each file of the folders named once: replay FOLDER... Fails when there is
// none.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* bytes, std::size_t size);

int main(int count, char** arguments)
{
    std::size_t replayed = 0;
    for (int i = 1; i < count; ++i) {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) {
            paths.push_back(entry.path());
        }
        std::sort(paths.begin(), paths.end());
        for (const std::filesystem::path& path : paths) {
            std::printf("%s\n", path.filename().string().c_str());
            std::fflush(stdout); // the last one shown is the one that breaks it
            std::ifstream file(path, std::ios::binary);
            const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
            LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
            ++replayed;
        }
    }
    std::printf("%zu inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
