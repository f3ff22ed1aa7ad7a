#include <gtest/gtest.h>

#include "app/desktop/BrimletWindows.hpp"
#include "app/desktop/QuitRule.hpp"
#include "app/desktop/ReopenRule.hpp"
#include "app/stores/CleanupPhase.hpp"

namespace brimlet {
namespace {

using Window = BrimletWindows::Window;

TEST(BrimletWindows, IdentifierWithHyphenSuffixBelongsAndLongerWordsDoNot) {
    struct Case {
        const char* window;
        const char* id;
        bool belongs;
    };
    const Case cases[] = {
        {"dashboard", "dashboard", true},           {"dashboard-1", "dashboard", true},
        {"dashboard-", "dashboard", true},          {"dashboards", "dashboard", false},
        {"Dashboard", "dashboard", false},          {"", "dashboard", false},
        {"cleanup-dashboard", "dashboard", false},  {"dash", "dashboard", false},
        {"settings-AppWindow-2", "settings", true}, {"cleanup_1", "cleanup", false},
    };
    for (const Case& c : cases) EXPECT_EQ(BrimletWindows::belongs(c.window, c.id), c.belongs) << c.window;

    const std::vector<Window> windows{
        {"dashboard-1", false, true}, {"cleanup", false, false}, {"settingsx", true, false}};
    EXPECT_TRUE(BrimletWindows::isOpen("dashboard", windows));  // miniaturised counts
    EXPECT_FALSE(BrimletWindows::isOpen("cleanup", windows));   // closed (neither visible nor in the Dock)
    EXPECT_FALSE(BrimletWindows::isOpen("settings", windows));
    EXPECT_TRUE(BrimletWindows::anyOpen(windows));
    EXPECT_FALSE(BrimletWindows::anyOpen({{"cleanup", false, false}, {"about", true, false}}));
    EXPECT_EQ(BrimletWindows::identifiers, (std::array<std::string_view, 3>{"dashboard", "cleanup", "settings"}));
}

TEST(CleanupPhase, BusyPhasesAreTheOnesRunningOffTheMainLoop) {
    std::vector<std::string_view> busy;
    for (const CleanupPhase& phase : CleanupPhase::allCases())
        if (phase.isBusy()) busy.push_back(phase.rawValue());
    EXPECT_EQ(busy, (std::vector<std::string_view>{"measuring", "scanning", "cleaning"}));
}

TEST(QuitRule, BuildsRequestsFromTheEventsCodes) {
    EXPECT_EQ(fourCharCode("aevt"), 0x61657674u);
    EXPECT_EQ(QuitRule::quitReasonKeyword, 0x7768793Fu);  // "why?"
    const auto plain = QuitRule::request(QuitRule::coreEventClass, QuitRule::quitEventID, false, "/usr/libexec/linkd",
                                         "com.apple.linkd");
    EXPECT_TRUE(plain.isIdleQuitAfterIntent());
    EXPECT_FALSE(
        QuitRule::request(fourCharCode("aevt"), fourCharCode("oapp"), false, "/usr/libexec/linkd", "com.apple.linkd")
            .isQuitEvent);
    EXPECT_FALSE(
        QuitRule::request(fourCharCode("misc"), QuitRule::quitEventID, false, std::nullopt, std::nullopt).isQuitEvent);

    EXPECT_EQ(QuitRule::senderLookup(true, true), QuitRule::SenderLookup::byAuditToken);
    EXPECT_EQ(QuitRule::senderLookup(false, true), QuitRule::SenderLookup::byProcessID);
    EXPECT_EQ(QuitRule::senderLookup(false, false), QuitRule::SenderLookup::none);
}

TEST(QuitRule, IdleQuitIsRefusedOnlyWhileTheUserIsWorking) {
    const auto idle = QuitRule::request(QuitRule::coreEventClass, QuitRule::quitEventID, false, "/usr/libexec/linkd",
                                        "com.apple.linkd");
    const auto withReason = QuitRule::request(QuitRule::coreEventClass, QuitRule::quitEventID, true,
                                              "/usr/libexec/linkd", "com.apple.linkd");
    const auto fromDock = QuitRule::request(QuitRule::coreEventClass, QuitRule::quitEventID, false,
                                            "/System/Library/CoreServices/Dock.app", "com.apple.dock");
    const std::vector<Window> closed{
        {"dashboard", false, false}, {"cleanup", false, false}, {"settings", false, false}};
    const std::vector<Window> miniaturised{{"dashboard", false, true}};
    const std::vector<Window> lookAlike{{"dashboards", true, false}};
    using Answer = QuitRule::Answer;
    struct Case {
        const char* what;
        std::optional<IntentQuitPolicy::Request> request;
        std::vector<Window> windows;
        std::optional<CleanupPhase> phase;
        Answer answer;
        const char* log;
    };
    const Case cases[] = {
        {"dashboard miniaturised", idle, miniaturised, CleanupPhase::idle, Answer::terminateCancel,
         "Refused the system's idle quit after an intent: window open true, cleanup busy false"},
        {"everything closed, idle", idle, closed, CleanupPhase::idle, Answer::terminateNow, nullptr},
        {"everything closed, finished", idle, closed, CleanupPhase::finished, Answer::terminateNow, nullptr},
        {"everything closed, ready", idle, closed, CleanupPhase::ready, Answer::terminateNow, nullptr},
        {"cleaning", idle, closed, CleanupPhase::cleaning, Answer::terminateCancel,
         "Refused the system's idle quit after an intent: window open false, cleanup busy true"},
        {"measuring",
         idle,
         {},
         CleanupPhase::measuring,
         Answer::terminateCancel,
         "Refused the system's idle quit after an intent: window open false, cleanup busy true"},
        {"scanning with a window", idle, miniaturised, CleanupPhase::scanning, Answer::terminateCancel,
         "Refused the system's idle quit after an intent: window open true, cleanup busy true"},
        {"store gone", idle, closed, std::nullopt, Answer::terminateNow, nullptr},
        {"look-alike window", idle, lookAlike, CleanupPhase::idle, Answer::terminateNow, nullptr},
        {"quit with a reason", withReason, miniaturised, CleanupPhase::cleaning, Answer::terminateNow, nullptr},
        {"another sender", fromDock, miniaturised, CleanupPhase::cleaning, Answer::terminateNow, nullptr},
        {"no event", std::nullopt, miniaturised, CleanupPhase::cleaning, Answer::terminateNow, nullptr},
    };
    for (const Case& c : cases) {
        const QuitRule::Reply reply = QuitRule::reply(c.request, c.windows, c.phase);
        EXPECT_EQ(reply.answer, c.answer) << c.what;
        EXPECT_EQ(reply.logMessage, c.log ? std::optional<std::string>(c.log) : std::nullopt) << c.what;
    }
}

TEST(ReopenRule, OpensTheDashboardOnlyForADeliberateReopenWithoutOwnIcon) {
    const auto at = [](double seconds) { return kestrow::ContinuousTime(kestrow::Seconds(seconds)); };
    ReopenSuppression lastIntent;
    lastIntent.noteRequest(at(50.0));
    EXPECT_FALSE(ReopenRule::opensDashboard(lastIntent, at(50.3), at(50.8), false));
    EXPECT_TRUE(ReopenRule::opensDashboard(lastIntent, at(51.0), at(51.5), false));
    EXPECT_FALSE(ReopenRule::opensDashboard(lastIntent, at(51.0), at(51.5), true));  // its own icon is there to click
    EXPECT_TRUE(ReopenRule::opensDashboard(ReopenSuppression(), at(0.1), at(0.6), false));
}

}  // namespace
}  // namespace brimlet
