#ifndef TAVO_TESTS_TEMP_DIR_H
#define TAVO_TESTS_TEMP_DIR_H

#include <string>

namespace support {

/// A new directory. The destructor removes it with everything in it.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    /// Returns the path of an entry of the directory.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// Returns the whole content of a file. Fails the running test when it cannot be read.
std::string readFile(const std::string& path);

/// Replaces the content of a file; `mode` holds its permission bits.
void writeFile(const std::string& path, const std::string& content, unsigned mode = 0644);

bool exists(const std::string& path);

} // namespace support

#endif
