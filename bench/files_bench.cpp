#include <kvr/api/file/NQ_Files.h>

#include "TempDir.h"
#include "floor/files.h"
#include "measure.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace bench {
namespace {

using kvr::api::file::NQ_FileUtils;

constexpr int kFiles = 4000;
constexpr std::size_t kCopied = 32 * 1024 * 1024;

/// One directory for all sides and rounds, since making it takes longer than listing it.
SharedDir manyFiles() {
    static const SharedDir made = [] {
        SharedDir directory = makeDir();
        for (int i = 0; i < kFiles; ++i)
            std::ofstream(directory->file("measurement-" + std::to_string(i) + ".csv"));
        return directory;
    }();
    return made;
}

SharedDir largeFile() {
    SharedDir directory = makeDir();
    std::ofstream(directory->file("source")) << std::string(kCopied, 'c');
    return directory;
}

void addListing() {
    const std::string operation = "list 4,000 files";
    const Repeat repeat = {3};
    add(
        operation, kLibrary,
        [] {
            return [directory = manyFiles()] {
                benchmark::DoNotOptimize(NQ_FileUtils::getFilesFromDir(directory->path()));
            };
        },
        repeat);
    add(
        operation, kFloor,
        [] {
            return [directory = manyFiles()] {
                benchmark::DoNotOptimize(floor::list(directory->path()));
            };
        },
        repeat);
    add(
        operation, "std::filesystem",
        [] {
            return [directory = manyFiles()] {
                std::vector<std::string> files;
                for (const auto& entry : std::filesystem::directory_iterator(directory->path()))
                    files.push_back(entry.path());
                benchmark::DoNotOptimize(files);
            };
        },
        repeat);
}

void addCopying() {
    const std::string operation = "copy 32 MiB";
    const Repeat repeat = {3};
    add(
        operation, kLibrary,
        [] {
            return [directory = largeFile()] {
                const std::string source = directory->file("source");
                const std::string target = directory->file("target");
                NQ_FileUtils::Linux_Copy(source.c_str(), target.c_str());
            };
        },
        repeat);
    add(
        operation, kFloor,
        [] {
            return [directory = largeFile()] {
                const std::string source = directory->file("source");
                const std::string target = directory->file("target");
                floor::copy(source.c_str(), target.c_str());
            };
        },
        repeat);
    add(
        operation, "std::filesystem",
        [] {
            return [directory = largeFile()] {
                std::filesystem::copy_file(directory->file("source"), directory->file("target"),
                                           std::filesystem::copy_options::overwrite_existing);
            };
        },
        repeat);
}

} // namespace

void addFiles() {
    addListing();
    addCopying();
}

} // namespace bench
