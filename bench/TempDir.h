#ifndef TAVO_BENCH_TEMPDIR_H
#define TAVO_BENCH_TEMPDIR_H

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace bench {

/// A directory below the temporary one, removed when the object is destroyed.
class TempDir {
public:
    TempDir() : path_(std::filesystem::temp_directory_path() / "tavo-bench-XXXXXX") {
        if (mkdtemp(&path_[0]) == nullptr)
            std::abort();
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

using SharedDir = std::shared_ptr<TempDir>;

inline SharedDir makeDir() { return std::make_shared<TempDir>(); }

} // namespace bench

#endif
