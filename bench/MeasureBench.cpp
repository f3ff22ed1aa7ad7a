// Measures a generated tree of small files with `du -sx -B1`, with SizeMeasurer walking alone on one
// thread, and with SizeMeasurer sharing the walk among its threads, in the same run: wall-clock and
// CPU time of each (the median of a few rounds, taken in turn so that each meets the same load).
//
//   build/release/bench/measure_bench [files] [folder] [threads]
//
// The tree is built once under the folder (default: the temporary folder) and removed afterwards;
// threads defaults to what the measurer would use here (SizeMeasurer::walkThreads()).
#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

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

double cpuSeconds(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    const auto secondsOf = [](const timeval& t) { return static_cast<double>(t.tv_sec) + t.tv_usec / 1e6; };
    return secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
}

struct Timing {
    double wall = 0;
    double cpu = 0;
};

// Times `run`, whose CPU is counted in `who` (this process's threads, or its waited-for children).
template <typename Run>
Timing timed(int who, const Run& run) {
    const double cpuBefore = cpuSeconds(who);
    const auto start = std::chrono::steady_clock::now();
    run();
    return {seconds(start), cpuSeconds(who) - cpuBefore};
}

Timing median(std::vector<Timing> rounds) {
    std::vector<double> walls, cpus;
    for (const Timing& t : rounds) walls.push_back(t.wall), cpus.push_back(t.cpu);
    std::sort(walls.begin(), walls.end());
    std::sort(cpus.begin(), cpus.end());
    return {walls[walls.size() / 2], cpus[cpus.size() / 2]};
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

    const unsigned threads =
        argc > 3 ? static_cast<unsigned>(std::atoi(argv[3])) : brimlet::SizeMeasurer::walkThreads();
    const auto measure = [&](unsigned on) {
        return brimlet::SizeMeasurer::censusOn(on, {root}, [] { return false; }).front();
    };
    const std::string du = "du -sx -B1 '" + root + "' > /tmp/measure-bench-du.txt";

    // Warm all the same way: one untimed pass each, so none pays for a cold cache.
    measure(1);
    std::system(du.c_str());

    constexpr int roundCount = 5;
    std::vector<Timing> duRounds, aloneRounds, sharedRounds;
    brimlet::TreeCensus alone, shared;
    for (int round = 0; round < roundCount; ++round) {
        duRounds.push_back(timed(RUSAGE_CHILDREN, [&] { std::system(du.c_str()); }));
        aloneRounds.push_back(timed(RUSAGE_SELF, [&] { alone = measure(1); }));
        sharedRounds.push_back(timed(RUSAGE_SELF, [&] { shared = measure(threads); }));
    }
    unsigned long long duBytes = 0;
    if (FILE* out = std::fopen("/tmp/measure-bench-du.txt", "r")) {
        if (std::fscanf(out, "%llu", &duBytes) != 1) duBytes = 0;
        std::fclose(out);
    }
    const std::uint64_t folders = folderBlocks(root);
    const Timing duTime = median(duRounds), aloneTime = median(aloneRounds), sharedTime = median(sharedRounds);

    std::printf("median of %d rounds; %u threads share the walk (this machine runs %u at once)\n", roundCount, threads,
                std::thread::hardware_concurrency());
    const auto line = [&](const char* name, const Timing& t) {
        std::printf("%-24s wall %.3f s (%.0f files/s), CPU %.3f s, %.2fx du's speed\n", name, t.wall, files / t.wall,
                    t.cpu, duTime.wall / t.wall);
    };
    line("du -sx -B1:", duTime);
    line("SizeMeasurer, 1 thread:", aloneTime);
    const std::string sharedName = "SizeMeasurer, " + std::to_string(threads) + " threads:";
    line(sharedName.c_str(), sharedTime);
    std::printf("shared walk: %.2fx the lone walk's speed; bytes %s the lone walk's\n",
                aloneTime.wall / sharedTime.wall, shared == alone ? "equal to" : "DIFFERENT from");
    std::printf("bytes %llu, %llu entries, %lld unreadable\n", static_cast<unsigned long long>(shared.bytes),
                static_cast<unsigned long long>(shared.entries), static_cast<long long>(shared.unreadable));
    std::printf("du minus the folders' own blocks (%llu): %llu bytes -> %s\n", static_cast<unsigned long long>(folders),
                duBytes - static_cast<unsigned long long>(folders),
                duBytes - folders == shared.bytes ? "equal" : "DIFFERENT");
    std::filesystem::remove_all(root);
    return 0;
}
