// The notifier that asks for permission before its first alert, over a scripted notification
// centre on the manual loop: one question however many alerts wait for it, their order kept, a
// refusal still handing each alert on, answers from another thread reaching the main loop, a
// centre outside the app bundle answering "not delivered" later, and no answer after the notifier
// is gone.
#include <gtest/gtest.h>

#include <thread>

#include "app/desktop/AuthorisedNotifier.hpp"
#include "tests/support/ManualMainLoop.hpp"

namespace brimlet {
namespace {

using namespace std::chrono_literals;

struct ScriptedCentre final : NotificationCentre {
    std::string unavailable;
    int questions = 0;
    std::vector<Answer> pendingQuestions;
    std::vector<std::pair<Alert, Answer>> added;

    kestrow::Status availability() const override {
        return unavailable.empty() ? kestrow::Status::success() : kestrow::Status::failure(unavailable);
    }
    void requestAuthorisation(Answer answered) override {
        ++questions;
        pendingQuestions.push_back(std::move(answered));
    }
    void add(const Alert& alert, Answer answered) override { added.emplace_back(alert, std::move(answered)); }
};

Alert alert(AlertKind kind, std::string title) { return Alert{kind, std::move(title), "body"}; }

struct NotifierRig : ::testing::Test {
    kestrow::ManualMainLoop loop;
    ScriptedCentre* centre = nullptr;
    std::unique_ptr<AuthorisedNotifier> notifier;
    std::vector<std::pair<std::string, bool>> answers;

    void make(std::string unavailable = {}) {
        auto made = std::make_unique<ScriptedCentre>();
        made->unavailable = std::move(unavailable);
        centre = made.get();
        notifier = std::make_unique<AuthorisedNotifier>(loop, std::move(made));
    }
    void post(const Alert& a) {
        notifier->post(a, [this, title = a.title](bool delivered) { answers.emplace_back(title, delivered); });
    }
    std::vector<std::string> addedTitles() const {
        std::vector<std::string> titles;
        for (const auto& [a, answer] : centre->added) titles.push_back(a.title);
        return titles;
    }
};

TEST_F(NotifierRig, AlertsWaitForTheOneQuestionThenGoOnInOrderWhateverTheAnswer) {
    for (const std::string refusal : {"", "not allowed"}) {
        SCOPED_TRACE(refusal.empty() ? "granted" : "refused");
        answers.clear();
        make();
        EXPECT_EQ(centre->questions, 0) << "nothing is asked before the first alert";
        post(alert(AlertKind::memoryPressure, "first"));
        post(alert(AlertKind::lowDisk, "second"));
        loop.runPending();
        EXPECT_EQ(centre->questions, 1);
        EXPECT_TRUE(centre->added.empty()) << "nothing goes to the centre while the question is open";

        centre->pendingQuestions.front()(refusal.empty() ? kestrow::Status::success()
                                                         : kestrow::Status::failure(refusal));
        EXPECT_TRUE(centre->added.empty()) << "the answer is heard on the main loop, not on the centre's queue";
        loop.runPending();
        EXPECT_EQ(addedTitles(), (std::vector<std::string>{"first", "second"}));

        post(alert(AlertKind::heavyApp, "third"));
        EXPECT_EQ(centre->questions, 1) << "asked once for the life of the process";
        EXPECT_EQ(addedTitles(), (std::vector<std::string>{"first", "second", "third"}));

        // The centre's own answer decides each alert.
        centre->added[0].second(kestrow::Status::success());
        centre->added[1].second(
            kestrow::Status::failure("Notifications are not allowed for this application (UNErrorDomain 1)"));
        centre->added[2].second(kestrow::Status::success());
        EXPECT_TRUE(answers.empty());
        loop.runPending();
        EXPECT_EQ(answers,
                  (std::vector<std::pair<std::string, bool>>{{"first", true}, {"second", false}, {"third", true}}));
    }
}

TEST_F(NotifierRig, AnswersFromAnotherThreadReachTheMainLoop) {
    make();
    post(alert(AlertKind::memoryPressure, "first"));
    std::thread([answer = centre->pendingQuestions.front()] { answer(kestrow::Status::success()); }).join();
    ASSERT_TRUE(loop.runUntil([&] { return !centre->added.empty(); }, 5s));
    std::thread([answer = centre->added.front().second] { answer(kestrow::Status::success()); }).join();
    ASSERT_TRUE(loop.runUntil([&] { return !answers.empty(); }, 5s));
    EXPECT_EQ(answers.front(), (std::pair<std::string, bool>{"first", true}));
}

TEST_F(NotifierRig, OutsideTheAppBundleEveryAlertIsNotDeliveredAndToldLater) {
    make("no notification centre outside the app bundle");
    post(alert(AlertKind::lowDisk, "first"));
    EXPECT_TRUE(answers.empty()) << "never answered from inside post()";
    loop.runPending();
    EXPECT_EQ(answers, (std::vector<std::pair<std::string, bool>>{{"first", false}}));
    EXPECT_EQ(centre->questions, 0);
    EXPECT_TRUE(centre->added.empty());
}

TEST_F(NotifierRig, NoAnswerArrivesAfterTheNotifierIsGone) {
    make();
    post(alert(AlertKind::memoryPressure, "asked"));
    NotificationCentre::Answer question = centre->pendingQuestions.front();
    question(kestrow::Status::success());
    loop.runPending();
    post(alert(AlertKind::lowDisk, "added"));
    NotificationCentre::Answer delivery = centre->added.back().second;
    // The centre's answers outlive the notifier (they sit in the system's queue).
    std::unique_ptr<AuthorisedNotifier> gone = std::move(notifier);
    gone.reset();
    delivery(kestrow::Status::success());
    question(kestrow::Status::success());
    loop.runPending();
    EXPECT_TRUE(answers.empty());
}

}  // namespace
}  // namespace brimlet
