#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace kestrow::testing {

// A fresh folder under the system's temporary folder, removed with everything in it afterwards.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "kestrow-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) {
            // Without a folder every path below would point at the file system's root: stop here.
            std::perror("kestrow tests: mkdtemp");
            std::abort();
        }
        path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// Writes a file, creating the folders above it.
inline void writeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace kestrow::testing
