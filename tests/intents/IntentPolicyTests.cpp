#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cmath>

#include "core/intents/IntentAnswers.hpp"
#include "core/intents/IntentQuitPolicy.hpp"
#include "core/intents/IntentRoutePolicy.hpp"
#include "core/intents/ReopenSuppression.hpp"

namespace brimlet {
namespace {

AppGroup group(std::string name, std::uint64_t footprint) {
    AppGroup g;
    g.id = "/Applications/" + name + ".app";
    g.name = std::move(name);
    g.footprint = footprint;
    return g;
}

TEST(IntentAnswers, MemoryPercentRoundsHalvesAwayFromZero) {
    struct Case {
        double fraction;
        int percent;
    };
    const Case cases[] = {
        {0.0, 0},         {0.004, 0},        {0.125, 13},  // 12.5 exactly: away from zero, not to even
        {0.625, 63},      {0.995, 100},      {1.0, 100},        {-0.125, -13},       {0.42, 42},
        {1e300, INT_MAX}, {-1e300, INT_MIN}, {std::nan(""), 0}, {INFINITY, INT_MAX},
    };
    for (const Case& c : cases) EXPECT_EQ(IntentAnswers::memoryPercent(c.fraction), c.percent) << c.fraction;
}

TEST(IntentAnswers, MemoryFractionIsCappedAndSafeWithoutPhysicalMemory) {
    struct Case {
        std::uint64_t used, physical;
        double fraction;
        int percent;
    };
    const Case cases[] = {
        {0, 0, 0, 0},
        {5, 0, 0, 0},
        {1, 2, 0.5, 50},
        {3, 2, 1, 100},  // more in use than installed reads as full
        {UINT64_MAX, 1, 1, 100},
        {995, 1000, 0.995, 100},
        {UINT64_MAX - 1, UINT64_MAX, static_cast<double>(UINT64_MAX - 1) / static_cast<double>(UINT64_MAX), 100},
    };
    for (const Case& c : cases) {
        const double fraction = IntentAnswers::memoryFraction(c.used, c.physical);
        EXPECT_DOUBLE_EQ(fraction, c.fraction) << c.used << "/" << c.physical;
        EXPECT_EQ(IntentAnswers::memoryPercent(fraction), c.percent) << c.used << "/" << c.physical;
    }
    EXPECT_EQ(IntentAnswers::memoryDialog(100), "Memory in use: 100%");
    EXPECT_EQ(IntentAnswers::memoryDialog(0), "Memory in use: 0%");
}

TEST(IntentAnswers, TopAppsNamesAndDialogUnits) {
    EXPECT_EQ(IntentAnswers::topAppsDialog({}), "No apps to list right now.");
    EXPECT_TRUE(IntentAnswers::topAppNames({}).empty());

    const std::vector<AppGroup> example{group("Safari", 1'342'177'280), group("Mail", 536'870'912)};
    EXPECT_EQ(IntentAnswers::topAppsDialog(example), "Most memory: Safari 1.25 GB, Mail 512 MB");
    EXPECT_EQ(IntentAnswers::topAppNames(example), (std::vector<std::string>{"Safari", "Mail"}));

    struct Case {
        std::uint64_t bytes;
        const char* text;
    };
    const Case cases[] = {
        {1'073'741'824, "1.00 GB"},
        {1'073'741'823, "1024 MB"},
        {1'048'576, "1 MB"},
        {1'048'575, "1024 KB"},
        {0, "0 KB"},
        {UINT64_MAX, "17179869184.00 GB"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(IntentAnswers::topAppsDialog({group("A, B", c.bytes)}), std::string("Most memory: A, B ") + c.text);
}

TEST(IntentAnswers, FreshnessIncludesTheLimitAndRefusesTheFuture) {
    using std::chrono::microseconds;
    const Date now = Date(microseconds(1'700'000'000'000'000));
    struct Case {
        std::int64_t ageMicroseconds;
        bool fresh;
    };
    const Case cases[] = {
        {0, true}, {2'000'000, true}, {2'000'001, false}, {2'100'000, false}, {-1, false}, {-2'000'000, false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(IntentAnswers::isFresh(now - microseconds(c.ageMicroseconds), now, kestrow::Seconds(2.0)), c.fresh)
            << c.ageMicroseconds;
    EXPECT_FALSE(IntentAnswers::isFresh(now, now, kestrow::Seconds(-1.0)));
}

TEST(IntentRoutePolicy, ResetsOnlyAnIdleStoreWithoutAWindow) {
    EXPECT_TRUE(IntentRoutePolicy::shouldResetBeforeOpening(false, false));
    EXPECT_FALSE(IntentRoutePolicy::shouldResetBeforeOpening(true, false));
    EXPECT_FALSE(IntentRoutePolicy::shouldResetBeforeOpening(false, true));
    EXPECT_FALSE(IntentRoutePolicy::shouldResetBeforeOpening(true, true));
}

IntentQuitPolicy::Request idleQuit() {
    return {true, false, std::string(IntentQuitPolicy::idleQuitSenderPath),
            std::string(IntentQuitPolicy::idleQuitSenderSigningID)};
}

TEST(IntentQuitPolicy, OnlyTheIntentServicesPlainQuitIsAnIdleQuit) {
    EXPECT_EQ(IntentQuitPolicy::idleQuitSenderPath, "/usr/libexec/linkd");
    EXPECT_EQ(IntentQuitPolicy::idleQuitSenderSigningID, "com.apple.linkd");
    struct Case {
        const char* what;
        IntentQuitPolicy::Request request;
        bool idle;
    };
    auto with = [](auto change) {
        auto r = idleQuit();
        change(r);
        return r;
    };
    const Case cases[] = {
        {"intent service", idleQuit(), true},
        {"quit reason", with([](auto& r) { r.hasQuitReason = true; }), false},
        {"not a quit event", with([](auto& r) { r.isQuitEvent = false; }), false},
        {"other path", with([](auto& r) { r.senderPath = "/tmp/linkd"; }), false},
        {"path with slash", with([](auto& r) { r.senderPath = "/usr/libexec/linkd/"; }), false},
        {"other signature", with([](auto& r) { r.senderSigningID = "com.example.linkd"; }), false},
        {"no path", with([](auto& r) { r.senderPath.reset(); }), false},
        {"no signature", with([](auto& r) { r.senderSigningID.reset(); }), false},
        {"nothing known", IntentQuitPolicy::Request{true, false, std::nullopt, std::nullopt}, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.request.isIdleQuitAfterIntent(), c.idle) << c.what;
        EXPECT_EQ(c.request == idleQuit(), c.idle) << c.what;  // every field takes part in equality
        for (bool window : {false, true})
            for (bool busy : {false, true})
                EXPECT_EQ(IntentQuitPolicy::refuses(c.request, window, busy), c.idle && (window || busy))
                    << c.what << " window " << window << " busy " << busy;
    }
    EXPECT_FALSE(IntentQuitPolicy::refuses(std::nullopt, true, true));
}

TEST(ReopenSuppression, WindowIsHalfOpenAndNeverLooksBackwards) {
    // Instants on the continuous clock, in seconds since its epoch.
    const auto at = [](double seconds) { return kestrow::ContinuousTime(kestrow::Seconds(seconds)); };
    EXPECT_EQ(ReopenSuppression::window, std::chrono::seconds(1));
    EXPECT_EQ(ReopenSuppression::reopenDelay, std::chrono::milliseconds(500));

    ReopenSuppression none;
    EXPECT_FALSE(none.isSuppressed(at(0)));
    EXPECT_TRUE(none.reopenOpensDashboard(at(0), at(0.5)));

    ReopenSuppression s;
    s.noteRequest(at(100.0));
    struct Case {
        double at;
        bool suppressed;
    };
    const Case cases[] = {{100.0, true},  {100.3, true}, {100.999, true},      {101.0, false},
                          {250.0, false}, {99.9, false}, {std::nan(""), false}};
    for (const Case& c : cases) EXPECT_EQ(s.isSuppressed(at(c.at)), c.suppressed) << c.at;

    struct Reopen {
        double arrived, checked;
        bool opens;
    };
    const Reopen reopens[] = {
        {100.3, 100.8, false},  // the intent's own side effect
        {101.0, 101.5, true},   // a deliberate reopen a second later
        {99.7, 100.2, false},   // the reopen came first, the request landed during the wait
        {99.0, 99.5, true},     // the request is later than both instants: no suppression
        {100.9, 101.4, false},
    };
    for (const Reopen& r : reopens)
        EXPECT_EQ(s.reopenOpensDashboard(at(r.arrived), at(r.checked)), r.opens) << r.arrived << " " << r.checked;

    s.noteRequest(at(200.0));  // a newer request replaces the older one
    EXPECT_FALSE(s.isSuppressed(at(100.5)));
    EXPECT_TRUE(s.isSuppressed(at(200.5)));
}

TEST(ReopenSuppression, OpensTheDashboardOnlyForADeliberateReopenWithoutOwnIcon) {
    const auto at = [](double seconds) { return kestrow::ContinuousTime(kestrow::Seconds(seconds)); };
    ReopenSuppression lastIntent;
    lastIntent.noteRequest(at(50.0));
    EXPECT_FALSE(lastIntent.opensDashboard(at(50.3), at(50.8), false));
    EXPECT_TRUE(lastIntent.opensDashboard(at(51.0), at(51.5), false));
    EXPECT_FALSE(lastIntent.opensDashboard(at(51.0), at(51.5), true));  // its own icon is there to click
    EXPECT_TRUE(ReopenSuppression().opensDashboard(at(0.1), at(0.6), false));
}

}  // namespace
}  // namespace brimlet
