// Alerts through a notification centre that needs the user's permission first, as the Mac's does.
// Permission is asked for once, on the first alert (not at launch: a menu-bar app that never alerts
// never asks); alerts that come while the question is open wait for the answer, in order. Even a
// refusal goes on to the centre afterwards: the user may allow notifications later, and the
// centre's own answer for each alert says whether it got through. The centre may answer on any
// thread; every answer hops to the main loop, and none arrives after the notifier is gone.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "app/desktop/Notifier.hpp"
#include "base/MainLoop.hpp"
#include "base/Status.hpp"

namespace brimlet {

// The system's side: what the notifier asks of it. Each answer is a success, or the centre's reason.
class NotificationCentre {
public:
    using Answer = std::function<void(kestrow::Status answer)>;

    virtual ~NotificationCentre() = default;
    // Success when alerts can be posted at all; else why not (the process is outside its app bundle).
    virtual kestrow::Status availability() const = 0;
    virtual void requestAuthorisation(Answer answered) = 0;
    virtual void add(const Alert& alert, Answer answered) = 0;
};

class AuthorisedNotifier final : public Notifier {
public:
    AuthorisedNotifier(kestrow::MainLoop& loop, std::unique_ptr<NotificationCentre> centre);
    ~AuthorisedNotifier() override;
    AuthorisedNotifier(const AuthorisedNotifier&) = delete;
    AuthorisedNotifier& operator=(const AuthorisedNotifier&) = delete;

    void post(const Alert& alert, Completion done) override;

    static constexpr std::string_view logCategory = "notifier";

private:
    enum class Authorisation { unasked, asking, answered };
    struct Waiting {
        Alert alert;
        Completion done;
    };

    // Wraps `then` so that it runs on the main loop, and only while this notifier lives.
    NotificationCentre::Answer onLoop(std::function<void(AuthorisedNotifier&, const kestrow::Status&)> then);
    void answered(const kestrow::Status& answer);
    void add(const Alert& alert, Completion done);
    void finish(const Alert& alert, Completion done, const kestrow::Status& answer);

    kestrow::MainLoop& loop_;
    std::unique_ptr<NotificationCentre> centre_;
    Authorisation authorisation_ = Authorisation::unasked;
    std::vector<Waiting> waiting_;
    std::shared_ptr<AuthorisedNotifier*> self_;
};

}  // namespace brimlet
