// The host's side of the suite: while this application hosts and the suite is active it shows the
// one shared menu bar item, the floating bar if the user chose it, and owns the global shortcut.
// The item, the bar's panel and the shortcut's system calls are seams; AppKit provides them on
// macOS, tests provide fakes, and a platform without them simply has none.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "FloatingLayout.hpp"
#include "GlobalHotKey.hpp"
#include "SuiteFormat.hpp"
#include "suite/protocol/SuiteState.hpp"

namespace kestrow::suite {

class SuiteHost;
class SuiteParticipant;

// The shared menu bar item.
class SuiteStatusItem {
public:
    virtual ~SuiteStatusItem() = default;
    virtual bool isVisible() const = 0;
    virtual void update(const SuiteValues& values, GlanceLevel worst) = 0;
    virtual void withdraw() = 0;
    // The position the status bar saved for the item after the user moved it; none where it keeps none.
    virtual std::optional<double> savedPosition() const { return std::nullopt; }
};

// The borderless panel that carries the floating bar.
class SuiteFloatingPanel {
public:
    virtual ~SuiteFloatingPanel() = default;
    virtual void show() = 0;
    virtual void hide() = 0;
    virtual bool isVisible() const = 0;
    virtual void setExpanded(bool expanded) = 0;
    virtual void update() = 0;  // the rows changed
    virtual void tearDown() = 0;
};

struct SuiteStatusItemFactory {
    // The shared position the new item should take; empty: the participant's shared settings.
    std::function<std::optional<double>()> preferredPosition;
    // Empty where the platform shows no item.
    std::function<std::unique_ptr<SuiteStatusItem>(SuiteHost&)> make;
    // The floating bar and the shortcut come from the same platform layer; empty or null: none.
    std::function<std::unique_ptr<SuiteFloatingPanel>(SuiteHost&)> makeFloatingPanel;
    HotKeyCenter* hotKeys = nullptr;
};

class SuiteHost {
public:
    SuiteHost(SuiteParticipant& participant, const SuiteStatusItemFactory& factory, bool registerHotKey);
    ~SuiteHost() { tearDown(); }
    SuiteHost(const SuiteHost&) = delete;
    SuiteHost& operator=(const SuiteHost&) = delete;

    SuiteParticipant& participant() { return participant_; }
    std::optional<double> preferredPosition() const;

    // Refreshes what is shown after the values, the level or the rows changed.
    void update();
    // Makes the item again when the status bar dropped it (it reports itself not visible).
    void reviveStatusItem();
    // Withdraws the item, closes the bar and gives the shortcut back; harmless twice.
    void tearDown();

    // Shows or hides the floating bar and remembers the choice in the shared settings.
    void setFloatingVisible(bool visible);
    void toggleFloating() { setFloatingVisible(!floatingVisible()); }
    bool floatingVisible() const;
    // Expands or collapses the bar and remembers the choice in the shared settings.
    void setFloatingExpanded(bool expanded);
    bool floatingExpanded() const;
    // Whether the suite shortcut is this host's, so the views may name it.
    bool hotKeyRegistered() const { return hotKey_ && hotKey_->isRegistered(); }

    SuiteStatusItem* statusItem() { return item_.get(); }
    SuiteFloatingPanel* floatingPanel() { return panel_.get(); }
    const GlobalHotKey* hotKey() const { return hotKey_.get(); }

private:
    void applyFloating();

    SuiteParticipant& participant_;
    const SuiteStatusItemFactory& factory_;
    std::unique_ptr<SuiteStatusItem> item_;
    std::unique_ptr<SuiteFloatingPanel> panel_;
    std::unique_ptr<GlobalHotKey> hotKey_;
    bool tornDown_ = false;
};

}  // namespace kestrow::suite
