// What the terminal screen costs while the user only watches it, beside its peers: runs
// "KestrowBrimlet --tui" (live figures every 2 s), htop at "-d 20" and btop at 2000 ms, each in its
// own detached tmux session of 100x30 under one private tmux server, lets them settle, then samples
// each process's CPU time (utime + stime from /proc/PID/stat) and resident memory (VmRSS from
// /proc/PID/status, every half second) over the same window and prints a table. A peer that is not
// installed is skipped. Linux only: it reads /proc.
//
//   terminal_idle_bench [SECONDS=60] [PATH-TO-KestrowBrimlet]
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string shellQuoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string commandOutput(const std::string& command) {
    std::string out;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[256];
        while (std::fgets(buffer, sizeof buffer, pipe)) out += buffer;
        ::pclose(pipe);
    }
    return out;
}

std::string findProgram(const std::string& name) {
    for (const char* folder : {"/usr/bin/", "/usr/local/bin/", "/bin/", "/snap/bin/"})
        if (::access((folder + name).c_str(), X_OK) == 0) return folder + name;
    return {};
}

// utime + stime in clock ticks; none once the process is gone.
std::optional<unsigned long long> cpuTicks(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    if (!std::getline(in, stat)) return std::nullopt;
    // The command name may hold spaces: the fields are counted after its closing parenthesis.
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    unsigned long long utime = 0, stime = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14) utime = std::stoull(field);
        if (i == 15) stime = std::stoull(field);
    }
    return utime + stime;
}

std::optional<unsigned long long> residentKiB(int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stoull(line.substr(6));
    return std::nullopt;
}

struct Subject {
    std::string name;
    std::string command;
    int pid = 0;
    unsigned long long ticksBefore = 0, ticksAfter = 0, peakKiB = 0;
    bool lost = false;
};

}  // namespace

int main(int argc, char** argv) {
    const double window = argc > 1 ? std::atof(argv[1]) : 60.0;
    const std::string app = argc > 2 ? argv[2] : KESTROW_BRIMLET_PATH;
    const std::string tmux = findProgram("tmux");
    if (window <= 0 || tmux.empty()) {
        std::fputs("usage: terminal_idle_bench [SECONDS=60] [PATH-TO-KestrowBrimlet] (needs tmux)\n", stderr);
        return 2;
    }
    char pattern[] = "/tmp/kestrow-tui-idle-XXXXXX";
    if (!::mkdtemp(pattern)) {
        std::perror("terminal_idle_bench: mkdtemp");
        return 1;
    }
    const std::string temp = pattern;
    const std::string home = temp + "/home";
    fs::create_directories(home + "/.config/btop");
    fs::create_directories(home + "/.config/kestrow");
    // Alerts off, as in the headless idle bench: the figures are all the screen has to do.
    std::ofstream(home + "/.config/kestrow/com.kestrow.brimlet.json")
        << R"({"alertSettings":"{\"heavyAppEnabled\":false,\"heavyAppThreshold\":8589934592,)"
           R"(\"lowDiskEnabled\":false,\"lowDiskThreshold\":10000000000,\"memoryPressureEnabled\":false}"})";
    std::ofstream(home + "/.config/btop/btop.conf") << "update_ms = 2000\n";

    const std::string environment =
        "exec env HOME=" + shellQuoted(home) + " XDG_CONFIG_HOME=" + shellQuoted(home + "/.config") +
        " XDG_CACHE_HOME=" + shellQuoted(home + "/.cache") + " XDG_DATA_HOME=" + shellQuoted(home + "/.local/share") +
        " LANG=C.UTF-8 LC_ALL=C.UTF-8 TERM=xterm-256color ";
    std::vector<Subject> subjects{{"KestrowBrimlet --tui", environment + shellQuoted(app) + " --tui --suite-folder " +
                                                               shellQuoted(temp + "/suite")}};
    if (const std::string htop = findProgram("htop"); !htop.empty())
        subjects.push_back({"htop -d 20", environment + shellQuoted(htop) + " -d 20"});
    else std::puts("htop is not installed: skipped");
    if (const std::string btop = findProgram("btop"); !btop.empty())
        subjects.push_back({"btop (2000 ms)", environment + shellQuoted(btop) + " --utf-force"});
    else std::puts("btop is not installed: skipped");

    const std::string server = shellQuoted(tmux) + " -f /dev/null -S " + shellQuoted(temp + "/tmux.sock") + " ";
    for (std::size_t i = 0; i < subjects.size(); ++i) {
        std::string session = "s";
        session += std::to_string(i);
        std::system(
            (server + "new-session -d -x 100 -y 30 -s " + session + " " + shellQuoted(subjects[i].command)).c_str());
        subjects[i].pid = std::atoi(commandOutput(server + "list-panes -t " + session + " -F '#{pane_pid}'").c_str());
    }
    // Start-up is not idle: each program draws its first screens and reads its settings first.
    std::this_thread::sleep_for(std::chrono::seconds(5));
    for (Subject& s : subjects) {
        const auto ticks = s.pid > 0 ? cpuTicks(s.pid) : std::nullopt;
        s.lost = !ticks;
        s.ticksBefore = ticks.value_or(0);
    }
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::duration<double>(window);
    while (std::chrono::steady_clock::now() < end) {
        for (Subject& s : subjects)
            if (const auto kib = residentKiB(s.pid)) s.peakKiB = std::max(s.peakKiB, *kib);
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    for (Subject& s : subjects) {
        const auto ticks = cpuTicks(s.pid);
        if (!ticks) s.lost = true;
        s.ticksAfter = ticks.value_or(0);
    }
    std::system((server + "kill-server").c_str());
    // A program may still be writing its settings as it goes: what is left then stays behind.
    std::error_code ignored;
    fs::remove_all(temp, ignored);

    const double hz = static_cast<double>(::sysconf(_SC_CLK_TCK));
    std::printf("Idle cost over %.0f s, 100x30 tmux panes, after 5 s of start-up\n", elapsed);
    std::printf("%-22s %12s %12s %14s\n", "program", "CPU seconds", "CPU % core", "peak RSS MB");
    for (const Subject& s : subjects) {
        if (s.lost) {
            std::printf("%-22s %12s %12s %14s\n", s.name.c_str(), "ended", "-", "-");
            continue;
        }
        const double cpu = static_cast<double>(s.ticksAfter - s.ticksBefore) / hz;
        std::printf("%-22s %12.2f %12.3f %14.1f\n", s.name.c_str(), cpu, 100.0 * cpu / elapsed,
                    static_cast<double>(s.peakKiB) / 1024.0);
    }
    return 0;
}
