#include "TempDir.h"

#include "Waiting.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <sys/stat.h>

#include <gtest/gtest.h>

namespace support {

TempDir::TempDir() {
    std::string pattern = std::filesystem::temp_directory_path() / "tavo-test-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr)
        throw std::runtime_error(std::string("mkdtemp: ") + std::strerror(errno));
    path_ = pattern;
}

TempDir::~TempDir() {
    // A process that was killed can still write in the directory until it has ended.
    const bool removed = eventually([this] {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
        return !exists(path_);
    });
    EXPECT_TRUE(removed) << path_ << " cannot be removed";
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.is_open()) << "cannot read " << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& content, unsigned mode) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    ASSERT_TRUE(out.good()) << "cannot write " << path;
    ASSERT_EQ(0, chmod(path.c_str(), mode));
}

bool exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

} // namespace support
