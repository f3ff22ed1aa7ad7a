// Change observation for the stores: a view (or the desktop controller) subscribes and is called on
// the main loop after an observed property changed. The returned token ends the subscription; it
// is safe to drop it inside the callback and after the store itself is gone.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>

#include "base/MainLoop.hpp"

namespace brimlet {

class Observers {
public:
    kestrow::MainLoop::Token subscribe(std::function<void()> callback) {
        const std::uint64_t id = next_++;
        (*list_)[id] = std::make_shared<std::function<void()>>(std::move(callback));
        return kestrow::MainLoop::Token([list = std::weak_ptr<List>(list_), id] {
            if (auto alive = list.lock()) alive->erase(id);
        });
    }

    void notify() const {
        // A copy: callbacks may subscribe or unsubscribe while they run.
        const List current = *list_;
        for (const auto& [id, callback] : current)
            if (list_->count(id)) (*callback)();
    }

    std::size_t count() const { return list_->size(); }

private:
    using List = std::map<std::uint64_t, std::shared_ptr<std::function<void()>>>;
    std::shared_ptr<List> list_ = std::make_shared<List>();
    std::uint64_t next_ = 1;
};

}  // namespace brimlet
