#include "app/desktop/AuthorisedNotifier.hpp"

#include <utility>

#include "base/Log.hpp"

namespace brimlet {

AuthorisedNotifier::AuthorisedNotifier(kestrow::MainLoop& loop, std::unique_ptr<NotificationCentre> centre)
    : loop_(loop),
      centre_(std::move(centre)),
      self_(std::make_shared<AuthorisedNotifier*>(this)) {
    if (const std::string reason = centre_->unavailableReason(); !reason.empty())
        kestrow::log::error(logCategory, reason + ": alerts cannot be posted as notifications");
}

AuthorisedNotifier::~AuthorisedNotifier() { *self_ = nullptr; }

NotificationCentre::Answer
AuthorisedNotifier::onLoop(std::function<void(AuthorisedNotifier&, const std::string&)> then) {
    kestrow::MainLoop* loop = &loop_;  // lives for the process, longer than this notifier
    std::weak_ptr<AuthorisedNotifier*> self = self_;
    return [loop, self, then = std::move(then)](std::string problem) {
        loop->post([self, then, problem = std::move(problem)] {
            const auto alive = self.lock();
            if (alive && *alive) then(**alive, problem);
        });
    };
}

void AuthorisedNotifier::post(const Alert& alert, Completion done) {
    if (const std::string reason = centre_->unavailableReason(); !reason.empty()) {
        // Answered later, as the centre would: never from inside post().
        auto shared = std::make_shared<Waiting>(Waiting{alert, std::move(done)});
        onLoop([shared](AuthorisedNotifier& notifier, const std::string& problem) {
            notifier.finish(shared->alert, std::move(shared->done), problem);
        })(reason);
        return;
    }
    switch (authorisation_) {
    case Authorisation::unasked:
        waiting_.push_back({alert, std::move(done)});
        authorisation_ = Authorisation::asking;
        centre_->requestAuthorisation(
            onLoop([](AuthorisedNotifier& notifier, const std::string& problem) { notifier.answered(problem); }));
        return;
    case Authorisation::asking: waiting_.push_back({alert, std::move(done)}); return;
    case Authorisation::answered: add(alert, std::move(done)); return;
    }
}

void AuthorisedNotifier::answered(const std::string& problem) {
    authorisation_ = Authorisation::answered;
    if (!problem.empty()) kestrow::log::error(logCategory, "notifications not allowed: " + problem);
    std::vector<Waiting> waiting = std::exchange(waiting_, {});
    for (Waiting& each : waiting) add(each.alert, std::move(each.done));
}

void AuthorisedNotifier::add(const Alert& alert, Completion done) {
    auto shared = std::make_shared<Waiting>(Waiting{alert, std::move(done)});
    centre_->add(alert, onLoop([shared](AuthorisedNotifier& notifier, const std::string& problem) {
                     notifier.finish(shared->alert, std::move(shared->done), problem);
                 }));
}

// On the main loop: logs the outcome and tells the store.
void AuthorisedNotifier::finish(const Alert& alert, Completion done, const std::string& problem) {
    if (problem.empty()) kestrow::log::info(logCategory, "alert posted: " + alert.title);
    else kestrow::log::error(logCategory, "alert not delivered: " + alert.title + " (" + problem + ")");
    if (done) done(problem.empty());
}

}  // namespace brimlet
