#include "TerminalRunner.hpp"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <variant>

#include "CursesTerminal.hpp"
#include "TerminalFrontEnd.hpp"
#include "app/commands/CleanerCommand.hpp"
#include "app/startup/BrimletApplication.hpp"
#include "app/startup/LaunchDefaults.hpp"
#include "base/Log.hpp"
#include "core/monitoring/ProcessReader.hpp"

namespace brimlet {

namespace {

constexpr std::string_view logCategory = "terminal";

// SIGWINCH arrives as a byte on this pipe, which the loop watches like the keyboard: the resize is
// handled on the loop's thread, between two turns, never inside the signal handler.
int resizePipe[2] = {-1, -1};

extern "C" void noteResize(int) {
    const int saved = errno;
    const char byte = 'r';
    [[maybe_unused]] const auto written = ::write(resizePipe[1], &byte, 1);
    errno = saved;
}

bool openResizePipe() {
    if (::pipe(resizePipe) != 0) return false;
    for (const int fd : resizePipe) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
    struct sigaction action {};
    action.sa_handler = noteResize;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGWINCH, &action, nullptr) == 0;
}

// Alerts belong on the screen the user is looking at: they show in the status line.
class StatusLineNotifier final : public Notifier {
public:
    explicit StatusLineNotifier(kestrow::MainLoop& loop) : loop_(loop) {}
    std::function<void(const Alert&)> show;
    void post(const Alert& alert, Completion done) override {
        if (show) show(alert);
        loop_.post([done, shown = static_cast<bool>(show)] { done(shown); });
    }

private:
    kestrow::MainLoop& loop_;
};

}  // namespace

int runTerminalApplication(const std::vector<std::string>& arguments, std::vector<kestrow::suite::SuiteFolder> folders,
                           const SuiteLaunch::DefaultsDomain& suiteDomain) {
    if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO)) {
        std::fprintf(stderr, "%.*s--tui needs a terminal on standard input and output\n",
                     static_cast<int>(SuiteLaunch::messagePrefix.size()), SuiteLaunch::messagePrefix.data());
        return 2;
    }
    // First, before any thread starts: the loop takes SIGINT, SIGTERM and SIGHUP for itself.
    std::unique_ptr<kestrow::MainLoop> loop = kestrow::makeSystemMainLoop(true);

    std::variant<LaunchDefaults, SuiteLaunch::Exit> opened =
        LaunchDefaults::open(suiteDomain, SuiteLaunch::bundleIdentifier());
    if (const SuiteLaunch::Exit* exit = std::get_if<SuiteLaunch::Exit>(&opened)) {
        std::fputs(exit->standardError.c_str(), stderr);
        return exit->status;
    }
    const LaunchDefaults& defaults = std::get<LaunchDefaults>(opened);
    if (!openResizePipe()) {
        std::fprintf(stderr, "%.*scannot follow the terminal's size (errno %d)\n",
                     static_cast<int>(SuiteLaunch::messagePrefix.size()), SuiteLaunch::messagePrefix.data(), errno);
        return 2;
    }
    std::unique_ptr<tui::CursesTerminal> terminal = tui::CursesTerminal::open();
    if (!terminal) {
        std::fprintf(stderr, "%.*scannot start the terminal screen (TERM=%s)\n",
                     static_cast<int>(SuiteLaunch::messagePrefix.size()), SuiteLaunch::messagePrefix.data(),
                     std::getenv("TERM") ? std::getenv("TERM") : "");
        return 2;
    }

    StatusLineNotifier notifier(*loop);
    BrimletApplication application(BrimletPlatform{
        .loop = *loop,
        .monitorDefaults = defaults.monitor(),
        .suiteDefaults = defaults.suite(),
        .notifier = notifier,
        .arguments = arguments,
        .suiteFolders = std::move(folders),
        // The folder a shell user means by ~, as the cleaner's command line takes it.
        .home = CleanerCommand::homeFolder(std::getenv("HOME"), ::getuid()),
        .statusItems = {},
        .makeFloating = {},
        .makeDock = {},
        .hotKeys = nullptr,
        .observeSystem = true,
        .intents = {},
        .monitorOptions = {.engine = nullptr, .setAppearance = {}, .hasMenuBar = false},
    });

    ProcessReading& processes = liveProcessReading();
    tui::FrontEndSeams seams;
    seams.lookup = [&processes](std::int32_t pid) { return processes.identity(pid); };
    seams.inOwnSession = [session = ::getsid(0)](std::int32_t pid) { return ::getsid(pid) == session; };
    seams.uid = static_cast<std::uint32_t>(::getuid());
    seams.protectedPids = TerminalQuit::protectedChain(static_cast<std::int32_t>(::getpid()), seams.lookup);
    seams.terminate = [](std::int32_t pid) { return pid > 0 && ::kill(pid, SIGTERM) == 0; };
    char folder[4096];
    seams.exportFolder = ::getcwd(folder, sizeof folder) ? folder : ".";
    seams.unicode = terminal->unicode();
    seams.suite = [&participant = application.participant()] {
        return tui::SuiteView{participant.isActive(), participant.rows()};
    };
    tui::TerminalFrontEnd frontEnd(application.monitor(), application.cleanup(), std::move(seams));
    notifier.show = [&frontEnd](const Alert& alert) {
        frontEnd.setStatus(alert.title + " " + alert.body, screens::Tone::warning);
    };

    // Redraws are coalesced: however many changes one turn of the loop brings, one frame follows.
    bool drawPending = false;
    auto draw = [&] {
        drawPending = false;
        terminal->draw(frontEnd.frame(terminal->rows(), terminal->columns()));
    };
    auto requestDraw = [&] {
        if (drawPending) return;
        drawPending = true;
        loop->post(draw);
    };
    kestrow::MainLoop::Token monitorChanges = application.monitor().observe(requestDraw);
    kestrow::MainLoop::Token cleanupChanges = application.cleanup().observe(requestDraw);
    kestrow::MainLoop::Token suiteChanges = application.suite().observe(requestDraw);
    kestrow::MainLoop::Token keys = loop->watchReadable(STDIN_FILENO, [&] {
        for (const int key : terminal->readKeys()) {
            if (!frontEnd.press(key)) {
                loop->stop();
                return;
            }
        }
        requestDraw();
    });
    kestrow::MainLoop::Token resizes = loop->watchReadable(resizePipe[0], [&] {
        char bytes[64];
        while (::read(resizePipe[0], bytes, sizeof bytes) > 0) {}
        terminal->resized();
        requestDraw();
    });

    // The screen shows live figures for as long as it runs: the store samples every 2 seconds.
    application.monitor().surfaceAppeared();
    kestrow::log::info(logCategory, "running in the terminal");
    draw();
    loop->run();

    application.monitor().surfaceDisappeared();
    keys.cancel();
    resizes.cancel();
    terminal.reset();  // the terminal is the user's again before anything else is said
    kestrow::log::info(logCategory, "stopping");
    application.shutdown();
    return 0;
}

}  // namespace brimlet
