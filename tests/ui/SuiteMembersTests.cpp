// Three real member processes on one temporary suite folder: election, hand-over after a crash, and
// a clean exit that the others see at once. Every wait has a deadline and every child is reaped.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <thread>

#include "base/MainLoop.hpp"
#include "suite/protocol/SuiteFolder.hpp"
#include "tests/support/TempFolder.hpp"

namespace kestrow::suite {
namespace {

using Clock = std::chrono::steady_clock;

// One suite_member child, its standard output read line by line.
class Member {
public:
    Member(const std::string& app, const std::string& folder) : app_(app) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        // Later children must not inherit this pipe.
        ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
        ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::close(fds[0]);
            ::close(fds[1]);
            ::execl(KESTROW_SUITE_MEMBER, "suite_member", app.c_str(), folder.c_str(), "3", nullptr);
            ::_exit(127);
        }
        ::close(fds[1]);
        out_ = fds[0];
    }
    ~Member() {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            reap(5.0);
        }
        if (out_ >= 0) ::close(out_);
    }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    const std::string& app() const { return app_; }
    bool started() const { return pid_ > 0 && out_ >= 0; }

    // Reads lines until one satisfies `want` or the deadline passes.
    bool waitFor(const std::function<bool(const std::string&)>& want, double seconds) {
        for (std::size_t i = 0; i < lines_.size(); ++i)
            if (i >= checked_ && want(lines_[i])) {
                checked_ = i + 1;
                return true;
            }
        checked_ = lines_.size();
        const auto deadline =
            Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
        while (Clock::now() < deadline) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd p{out_, POLLIN, 0};
            if (::poll(&p, 1, static_cast<int>(std::max<long>(1, left.count()))) <= 0) continue;
            char buffer[512];
            const ssize_t n = ::read(out_, buffer, sizeof buffer);
            if (n <= 0) return false;  // the child is gone
            partial_.append(buffer, static_cast<std::size_t>(n));
            for (std::size_t nl; (nl = partial_.find('\n')) != std::string::npos;) {
                lines_.push_back(partial_.substr(0, nl));
                partial_.erase(0, nl + 1);
            }
            for (; checked_ < lines_.size(); ++checked_)
                if (want(lines_[checked_])) {
                    ++checked_;
                    return true;
                }
        }
        return false;
    }
    bool waitForLine(const std::string& line, double seconds) {
        return waitFor([&](const std::string& l) { return l == line; }, seconds);
    }
    // The last value a line starting with `prefix` reported, as far as read.
    std::string last(const std::string& prefix) const {
        for (auto it = lines_.rbegin(); it != lines_.rend(); ++it)
            if (it->rfind(prefix, 0) == 0) return it->substr(prefix.size());
        return {};
    }
    std::string transcript() const {
        std::string all;
        for (const auto& l : lines_) all += "  " + app_ + ": " + l + "\n";
        return all;
    }

    void signal(int number) { ::kill(pid_, number); }
    // Waits for the child to end (its pipe closes first), then collects its status.
    int reap(double seconds) {
        waitFor([](const std::string&) { return false; }, seconds);
        int status = 0;
        const pid_t done = ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return done > 0 ? status : -1;
    }

private:
    std::string app_;
    pid_t pid_ = -1;
    int out_ = -1;
    std::vector<std::string> lines_;
    std::size_t checked_ = 0;
    std::string partial_;
};

// Polls a file-backed condition; the members write on their own schedule.
bool eventually(const std::function<bool()>& condition, double seconds) {
    const auto deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    while (Clock::now() < deadline) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

bool recordSaysHosting(const SuiteFolder& folder, SuiteApp app) {
    const auto result = GlanceStore{folder}.read(app);
    return result && result->ok() && result->value().hosting && result->value().state == GlanceState::running;
}

TEST(SuiteMembers, OneHostsTheOtherTakesOverAndAStoppedMemberIsDroppedAtOnce) {
    kestrow::testing::TempFolder temp;
    const SuiteFolder folder(temp / "Suite");
    Member brimlet("brimlet", folder.url), fennick("fennick", folder.url), corvane("corvane", folder.url);
    Member* all[] = {&brimlet, &fennick, &corvane};
    auto transcript = [&] { return brimlet.transcript() + fennick.transcript() + corvane.transcript(); };
    for (Member* m : all) ASSERT_TRUE(m->started());
    for (Member* m : all) ASSERT_TRUE(m->waitForLine("active 1", 5.0)) << m->app() << "\n" << transcript();

    // Exactly one of the two that can host hosts, and its record says so.
    auto hostLine = [](const std::string& l) { return l == "host 1"; };
    Member* host = nullptr;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (!host && Clock::now() < deadline)
        for (Member* m : {&brimlet, &fennick})
            if (m->waitFor(hostLine, 0.05)) host = m;
    ASSERT_NE(host, nullptr) << transcript();
    Member* waiting = host == &brimlet ? &fennick : &brimlet;
    const SuiteApp hostApp = *SuiteApp::fromRawValue(host->app());
    const SuiteApp waitingApp = *SuiteApp::fromRawValue(waiting->app());
    EXPECT_TRUE(eventually([&] { return recordSaysHosting(folder, hostApp); }, 5.0));
    EXPECT_FALSE(recordSaysHosting(folder, waitingApp));
    EXPECT_FALSE(recordSaysHosting(folder, SuiteApp::corvane));
    EXPECT_EQ(waiting->last("host "), "0");

    // The host crashes: its lock drops with it and the other one takes over.
    host->signal(SIGKILL);
    const int killed = host->reap(5.0);
    EXPECT_TRUE(WIFSIGNALED(killed) && WTERMSIG(killed) == SIGKILL);
    ASSERT_TRUE(waiting->waitFor(hostLine, 6.0)) << transcript();
    EXPECT_TRUE(eventually([&] { return recordSaysHosting(folder, waitingApp); }, 5.0));

    // Corvane quits cleanly: its last record says stopped, and the host drops it at once rather
    // than after its ttl.
    const auto quit = Clock::now();
    corvane.signal(SIGTERM);
    EXPECT_TRUE(corvane.waitForLine("stopped", 5.0)) << transcript();
    const int stopped = corvane.reap(5.0);
    EXPECT_TRUE(WIFEXITED(stopped) && WEXITSTATUS(stopped) == 0);
    const auto corvaneRecord = GlanceStore{folder}.read(SuiteApp::corvane);
    ASSERT_TRUE(corvaneRecord && corvaneRecord->ok());
    EXPECT_EQ(corvaneRecord->value().state, GlanceState::stopped);
    EXPECT_TRUE(
        waiting->waitFor([](const std::string& l) { return l.find("corvane=notRunning") != std::string::npos; }, 2.0))
        << transcript();
    EXPECT_LT(Clock::now() - quit, std::chrono::seconds(3)) << "sooner than corvane's 3 s ttl would allow";

    waiting->signal(SIGTERM);
    EXPECT_TRUE(waiting->waitForLine("stopped", 5.0)) << transcript();
    const int last = waiting->reap(5.0);
    EXPECT_TRUE(WIFEXITED(last) && WEXITSTATUS(last) == 0);
    const auto lastRecord = GlanceStore{folder}.read(waitingApp);
    ASSERT_TRUE(lastRecord && lastRecord->ok());
    EXPECT_EQ(lastRecord->value().state, GlanceState::stopped);
    EXPECT_FALSE(lastRecord->value().hosting);
}

bool freshRecordIn(const SuiteFolder& folder, SuiteApp app) {
    const auto result = GlanceStore{folder}.read(app);
    return result && result->ok() && result->value().isFresh(epochSeconds(WallClock::now()));
}

// Running members whose "glances" folder is deleted, then replaced by a new folder, go on: each
// prepares it again, writes its record into the folder the path now names and sees the other.
TEST(SuiteMembers, GoOnWhenTheirFolderIsDeletedOrReplaced) {
    kestrow::testing::TempFolder temp;
    const SuiteFolder folder(temp / "Suite");
    Member brimlet("brimlet", folder.url), corvane("corvane", folder.url);
    auto transcript = [&] { return brimlet.transcript() + corvane.transcript(); };
    for (Member* m : {&brimlet, &corvane}) ASSERT_TRUE(m->waitForLine("active 1", 5.0)) << transcript();

    for (const bool replace : {false, true}) {
        SCOPED_TRACE(replace ? "replaced" : "deleted");
        if (replace) {
            // A new folder renamed into place; the members may have made one already meanwhile.
            const std::string fresh = temp / "fresh";
            ASSERT_EQ(::mkdir(fresh.c_str(), 0700), 0);
            bool placed = false;
            for (int attempt = 0; attempt < 100 && !placed; ++attempt) {
                std::filesystem::rename(folder.glancesURL(), temp / ("old" + std::to_string(attempt)));
                placed = ::rename(fresh.c_str(), folder.glancesURL().c_str()) == 0;
            }
            ASSERT_TRUE(placed);
        } else {
            std::filesystem::rename(folder.glancesURL(), temp / "deleted");
            // The members may still be letting their spare files go from the moved folder, through
            // the descriptors they hold: an entry can vanish between the listing and its removal.
            EXPECT_TRUE(eventually(
                [&] {
                    std::error_code ignored;
                    std::filesystem::remove_all(temp / "deleted", ignored);
                    return !std::filesystem::exists(temp / "deleted");
                },
                10.0));
        }
        EXPECT_TRUE(eventually(
            [&] { return freshRecordIn(folder, SuiteApp::brimlet) && freshRecordIn(folder, SuiteApp::corvane); }, 10.0))
            << transcript();
        // Both still see two members running: neither went blind.
        for (Member* m : {&brimlet, &corvane}) EXPECT_EQ(m->last("active "), "1") << m->app() << "\n" << transcript();
        EXPECT_TRUE(eventually([&] { return recordSaysHosting(folder, SuiteApp::brimlet); }, 10.0)) << transcript();
    }
}

}  // namespace
}  // namespace kestrow::suite
