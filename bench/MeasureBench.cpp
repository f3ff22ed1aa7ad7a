// Measures a generated tree of small files with SizeMeasurer and with `du -sx -B1`, in the same run.
//
//   build/release/bench/measure_bench [files] [folder]
//
// The tree is built once under the folder (default: the temporary folder) and removed afterwards.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/cleanup/SizeMeasurer.hpp"

namespace {

double seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

// The folders' own blocks: du counts them, the measurer (like the file manager it mirrors) does not.
std::uint64_t folderBlocks(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return 0;
    std::uint64_t sum = static_cast<std::uint64_t>(st.st_blocks) * 512;
    DIR* dir = ::opendir(path.c_str());
    if (!dir) return sum;
    while (const dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name != "." && name != ".." && e->d_type == DT_DIR) sum += folderBlocks(path + "/" + name);
    }
    ::closedir(dir);
    return sum;
}

}  // namespace

int main(int argc, char** argv) {
    const long files = argc > 1 ? std::atol(argv[1]) : 200000;
    const std::string base = argc > 2 ? argv[2] : std::filesystem::temp_directory_path().string();
    std::string root = base + "/measure-bench-XXXXXX";
    if (!::mkdtemp(root.data())) return 1;

    const auto build = std::chrono::steady_clock::now();
    const long perFolder = 500;
    for (long i = 0; i < files; ++i) {
        const std::string folder =
            root + "/d" + std::to_string(i / perFolder / 20) + "/e" + std::to_string(i / perFolder);
        if (i % perFolder == 0) std::filesystem::create_directories(folder);
        const std::string file = folder + "/f" + std::to_string(i);
        const int fd = ::open(file.c_str(), O_CREAT | O_WRONLY, 0644);
        const std::size_t size = 1 + static_cast<std::size_t>(i % 7) * 1500;
        std::string bytes(size, 'b');
        if (::write(fd, bytes.data(), bytes.size()) < 0) return 1;
        ::close(fd);
    }
    std::printf("tree: %ld files in %.1f s under %s\n", files, seconds(build), root.c_str());
    std::system("sync");

    // Warm both the same way: one untimed pass each, so neither pays for a cold cache.
    brimlet::SizeMeasurer::allocatedSize(root, [] { return false; });
    const std::string du = "du -sx -B1 '" + root + "' > /tmp/measure-bench-du.txt";
    std::system(du.c_str());

    const auto ours = std::chrono::steady_clock::now();
    const brimlet::MeasuredSize size = brimlet::SizeMeasurer::allocatedSize(root, [] { return false; });
    const double oursSeconds = seconds(ours);
    const auto theirs = std::chrono::steady_clock::now();
    std::system(du.c_str());
    const double duSeconds = seconds(theirs);
    unsigned long long duBytes = 0;
    if (FILE* out = std::fopen("/tmp/measure-bench-du.txt", "r")) {
        if (std::fscanf(out, "%llu", &duBytes) != 1) duBytes = 0;
        std::fclose(out);
    }
    const std::uint64_t folders = folderBlocks(root);

    std::printf("SizeMeasurer: %.3f s, %.0f files/s, %llu bytes, %lld unreadable\n", oursSeconds, files / oursSeconds,
                static_cast<unsigned long long>(size.bytes), static_cast<long long>(size.unreadable));
    std::printf("du -sx -B1:   %.3f s, %.0f files/s, %llu bytes\n", duSeconds, files / duSeconds, duBytes);
    std::printf("du minus the folders' own blocks (%llu): %llu bytes -> %s\n", static_cast<unsigned long long>(folders),
                duBytes - static_cast<unsigned long long>(folders),
                duBytes - folders == size.bytes ? "equal" : "DIFFERENT");
    std::filesystem::remove_all(root);
    return 0;
}
