#include "AppGrouper.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "MonitorTypes.hpp"

namespace brimlet {

std::optional<AppGrouper::Bundle> AppGrouper::outermostBundle(const std::optional<std::string>& path) {
    if (!path || path->empty() || path->front() != '/') return std::nullopt;
    std::string_view rest(*path);
    std::string prefix;
    prefix.reserve(rest.size());
    while (!rest.empty()) {
        const std::size_t slash = rest.find('/');
        const std::string_view component = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
        if (component.empty()) continue;
        prefix += '/';
        prefix += component;
        // The walk runs from the root, so the first bundle met is the outermost one; a component
        // that is only ".app" names no application.
        if (component.size() >= 5 && component.substr(component.size() - 4) == ".app")
            return Bundle{std::move(prefix), std::string(component.substr(0, component.size() - 4))};
    }
    return std::nullopt;
}

AppGrouper::Identity AppGrouper::identity(const std::optional<std::string>& path,
                                          const std::optional<std::string>& argv0, const std::string& name) {
    if (auto bundle = outermostBundle(path)) return Identity{bundle->path, bundle->name, bundle->path};
    if (argv0) {
        std::string_view last;
        std::string_view rest(*argv0);
        while (!rest.empty()) {
            const std::size_t slash = rest.find('/');
            const std::string_view component = rest.substr(0, slash);
            if (!component.empty()) last = component;
            if (slash == std::string_view::npos) break;
            rest.remove_prefix(slash + 1);
        }
        // A login shell is started as "-zsh"; it is still zsh.
        if (!last.empty() && last.front() == '-') last.remove_prefix(1);
        if (!last.empty()) return Identity{"cmd:" + std::string(last), std::string(last), std::nullopt};
    }
    return Identity{"cmd:" + name, name, std::nullopt};
}

std::vector<AppGroup> AppGrouper::group(const std::vector<ProcessSample>& samples) {
    // Keys are views of the groups' own ids, which do not move once reserved: one group at most
    // per sample.
    std::unordered_map<std::string_view, std::size_t> index;
    index.reserve(samples.size());
    std::vector<AppGroup> groups;
    groups.reserve(samples.size());
    for (const ProcessSample& sample : samples) {
        // The sampler caches each process's identity; only a sample without one is worked out here.
        std::optional<Identity> computed;
        if (!sample.app) computed = identity(sample.path, sample.argv0, sample.name);
        const Identity& id = sample.app ? *sample.app : *computed;
        auto it = index.find(id.key);
        if (it == index.end()) {
            AppGroup& fresh = groups.emplace_back();
            fresh.id = id.key;
            fresh.name = id.name;
            fresh.bundlePath = id.bundlePath;
            it = index.emplace(fresh.id, groups.size() - 1).first;
        }
        groups[it->second].add(sample);
    }
    // Equal footprints keep the order in which their first process was seen, which is deterministic.
    // The order is found on positions and each group moved once: a group is large to move about.
    std::vector<std::size_t> order(groups.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&groups](std::size_t a, std::size_t b) {
        return groups[a].footprint != groups[b].footprint ? groups[a].footprint > groups[b].footprint : a < b;
    });
    std::vector<AppGroup> sorted;
    sorted.reserve(groups.size());
    for (const std::size_t i : order) sorted.push_back(std::move(groups[i]));
    return sorted;
}

}  // namespace brimlet
