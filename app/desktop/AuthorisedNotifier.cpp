#include "app/desktop/AuthorisedNotifier.hpp"

#include <utility>

#include "base/Log.hpp"

namespace brimlet {

AuthorisedNotifier::AuthorisedNotifier(kestrow::MainLoop& loop, std::unique_ptr<NotificationCentre> centre)
    : loop_(loop),
      centre_(std::move(centre)),
      self_(std::make_shared<AuthorisedNotifier*>(this)) {
    if (const kestrow::Status available = centre_->availability(); available.failed())
        kestrow::log::error(logCategory, available.message() + ": alerts cannot be posted as notifications");
}

AuthorisedNotifier::~AuthorisedNotifier() { *self_ = nullptr; }

NotificationCentre::Answer
AuthorisedNotifier::onLoop(std::function<void(AuthorisedNotifier&, const kestrow::Status&)> then) {
    kestrow::MainLoop* loop = &loop_;  // lives for the process, longer than this notifier
    std::weak_ptr<AuthorisedNotifier*> self = self_;
    return [loop, self, then = std::move(then)](kestrow::Status answer) {
        loop->post([self, then, answer = std::move(answer)] {
            const auto alive = self.lock();
            if (alive && *alive) then(**alive, answer);
        });
    };
}

void AuthorisedNotifier::post(const Alert& alert, Completion done) {
    if (kestrow::Status available = centre_->availability(); available.failed()) {
        // Answered later, as the centre would: never from inside post().
        auto shared = std::make_shared<Waiting>(Waiting{alert, std::move(done)});
        onLoop([shared](AuthorisedNotifier& notifier, const kestrow::Status& answer) {
            notifier.finish(shared->alert, std::move(shared->done), answer);
        })(std::move(available));
        return;
    }
    switch (authorisation_) {
    case Authorisation::unasked:
        waiting_.push_back({alert, std::move(done)});
        authorisation_ = Authorisation::asking;
        centre_->requestAuthorisation(
            onLoop([](AuthorisedNotifier& notifier, const kestrow::Status& answer) { notifier.answered(answer); }));
        return;
    case Authorisation::asking: waiting_.push_back({alert, std::move(done)}); return;
    case Authorisation::answered: add(alert, std::move(done)); return;
    }
}

void AuthorisedNotifier::answered(const kestrow::Status& answer) {
    authorisation_ = Authorisation::answered;
    if (answer.failed()) kestrow::log::error(logCategory, "notifications not allowed: " + answer.message());
    std::vector<Waiting> waiting = std::exchange(waiting_, {});
    for (Waiting& each : waiting) add(each.alert, std::move(each.done));
}

void AuthorisedNotifier::add(const Alert& alert, Completion done) {
    auto shared = std::make_shared<Waiting>(Waiting{alert, std::move(done)});
    centre_->add(alert, onLoop([shared](AuthorisedNotifier& notifier, const kestrow::Status& answer) {
                     notifier.finish(shared->alert, std::move(shared->done), answer);
                 }));
}

// On the main loop: logs the outcome and tells the store.
void AuthorisedNotifier::finish(const Alert& alert, Completion done, const kestrow::Status& answer) {
    if (answer.ok()) kestrow::log::info(logCategory, "alert posted: " + alert.title);
    else kestrow::log::error(logCategory, "alert not delivered: " + alert.title + " (" + answer.message() + ")");
    if (done) done(answer.ok());
}

}  // namespace brimlet
