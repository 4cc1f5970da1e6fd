// Runs a target on files and directories without the fuzzing engine: the corpus as a test, or one finding.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz.h"
#include "support/wire.h"

namespace {

void Run(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    fuzz::Require(!file.bad() && file.is_open(), path.c_str());
    const AtPageEnd page(input);  // detects reads beyond it, even without a sanitizer
    LLVMFuzzerTestOneInput(page.Get(), input.size());
}

std::vector<std::filesystem::path> FilesOf(const std::filesystem::path &path) {
    if (!std::filesystem::is_directory(path)) return {path};
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(path))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int nArguments, char **rgszArgument) {
    size_t nRun = 0;
    for (int i = 1; i < nArguments; ++i) {
        for (const auto &path : FilesOf(rgszArgument[i])) {
            fprintf(stderr, "%s\n", path.c_str());  // the last name printed is the failing one
            Run(path);
            ++nRun;
        }
    }
    printf("%zu inputs\n", nRun);
    return nRun > 0 ? 0 : 1;
}
