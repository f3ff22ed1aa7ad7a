#include "app/startup/LaunchOptions.hpp"

#include <algorithm>
#include <cstdio>

#include "core/intents/SuiteFolderArgument.hpp"

namespace brimlet {

namespace {

constexpr bool everywhere = true, macOnly = false;

LaunchOption flag(std::string_view name, bool onLinux, std::string_view help) {
    return LaunchOption{name, {}, {}, onLinux, true, help, {}};
}

LaunchOption valued(std::string_view name, std::string_view valueName, std::vector<std::string_view> choices,
                    bool onLinux, std::string_view help) {
    return LaunchOption{name, valueName, std::move(choices), onLinux, true, help, {}};
}

LaunchOption with(std::string_view needed, LaunchOption option) {
    option.needs = needed;
    return option;
}

const std::vector<LaunchOption>& options() {
    static const std::vector<LaunchOption> all = {
        flag("--snapshot-json", everywhere,
             "sample the machine twice, one second apart, print the second snapshot\n"
             "as JSON (memory, pressure, swap, CPU load, GPU, disk rates and space,\n"
             "thermal state, every process grouped into applications) and exit"),
        flag("--measure", everywhere,
             "list the caches and personal items the cleaner finds in the home folder\n"
             "($HOME): id, title, kind, size and what cleaning would do; changes nothing"),
        with("--measure", flag("--json", everywhere, "print that list as JSON")),
        flag("--clean", everywhere,
             "move the caches that rebuild themselves to the Trash and print the\n"
             "report; exit status 0 when everything was done, 1 when something was\n"
             "skipped (the report says why)"),
        with("--clean", flag("--dry-run", everywhere, "show what would be cleaned and change nothing")),
        with("--clean", valued("--item", "ID", {}, everywhere, "only this cache (repeatable)")),
        with("--clean",
             valued("--approve", "ID", {}, everywhere, "also move this personal item to the Trash (repeatable)")),
        with("--clean", flag("--permanent", everywhere,
                             "delete the caches instead of moving them to the Trash; personal\n"
                             "items are never deleted permanently")),
        with("--clean", valued("--report", "FILE.md|FILE.json", {}, everywhere,
                               "also write the report to that file, as Markdown or JSON")),
        flag("--tui", everywhere,
             "run full screen in this terminal: live figures with their grades and\n"
             "5-minute charts, every app (ask one to quit), and the cleaner"),
        valued(SuiteFolderArgument::name, "PATH", {}, everywhere,
               "use a suite folder inside the temporary folder and the separate\n"
               "com.kestrow.brimlet.qa settings"),
        flag("--floating", macOnly, "show the floating monitor for this run only"),
        flag("--floating-expanded", macOnly, "show it expanded, for this run only"),
        flag("--dock-badges", macOnly, "show memory badges on Dock icons, for this run only"),
        valued("--appearance", "dark|light", {"dark", "light"}, macOnly, "force the windows' appearance"),
        valued("--open", "dashboard|cleanup|settings", {"dashboard", "cleanup", "settings"}, macOnly,
               "open that window at launch"),
        flag("--help", everywhere, "print this help and exit"),
        flag("--version", everywhere, "print the version and exit"),
    };
    return all;
}

const LaunchOption* find(std::string_view name, LaunchPlatform platform) {
    for (const LaunchOption& option : options())
        if (option.name == name && option.availableOn(platform)) return &option;
    return nullptr;
}

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f;
    });
}

SuiteLaunch::Exit usage(const std::string& text) {
    return SuiteLaunch::Exit{std::string(SuiteLaunch::messagePrefix) + text + " (see --help)\n", 2};
}

std::string joined(const std::vector<std::string_view>& choices) {
    std::string text;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (i > 0) text += i + 1 == choices.size() ? " or " : ", ";
        text += choices[i];
    }
    return text;
}

// A name the system hands a Mac app on its own ("-NSDocumentRevisionsDebugMode", "-psn_0_1234").
bool isSystemArgument(std::string_view argument) {
    return argument.size() > 1 && argument[0] == '-' && argument[1] != '-';
}

// Within the limits every file system we run on shares: 255 bytes a name, 4,095 a path.
bool isCreatablePath(std::string_view path) {
    if (path.size() >= 4096) return false;
    std::size_t start = 0;
    while (start <= path.size()) {
        const auto end = std::min(path.find('/', start), path.size());
        if (end - start > 255) return false;
        start = end + 1;
    }
    return true;
}

}  // namespace

std::span<const LaunchOption> LaunchOptions::table() { return options(); }

std::string LaunchOptions::printable(std::string_view argument) {
    std::string text;
    for (char c : argument) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            text += escaped;
        } else {
            text += c;
        }
    }
    return text;
}

std::optional<SuiteLaunch::Exit> LaunchOptions::validate(const std::vector<std::string>& arguments,
                                                         LaunchPlatform platform) {
    std::vector<const LaunchOption*> given;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const LaunchOption* option = find(argument, platform);
        if (!option) {
            if (platform == LaunchPlatform::mac && isSystemArgument(argument)) {
                // Its value, when it has one, belongs to it too.
                if (i + 1 < arguments.size() && !arguments[i + 1].starts_with("-")) ++i;
                continue;
            }
            return usage("unknown argument " + printable(argument));
        }
        given.push_back(option);
        if (!option->takesValue()) continue;
        const std::string name(option->name);
        const bool present =
            i + 1 < arguments.size() && !arguments[i + 1].empty() && !arguments[i + 1].starts_with("--");
        if (!present) return usage(name + " needs a value: " + std::string(option->valueName));
        const std::string& value = arguments[++i];
        if (hasControlCharacter(value))
            return usage(name + " must not contain control characters: " + printable(value));
        if (option->name == SuiteFolderArgument::name && !isCreatablePath(value))
            return usage(name + " names a folder no file system can hold: " + printable(value));
        if (!option->choices.empty() &&
            std::find(option->choices.begin(), option->choices.end(), value) == option->choices.end())
            return usage(name + " must be " + joined(option->choices) + ", not " + printable(value));
    }
    // Only options count, never a value that happens to spell one.
    for (const LaunchOption* option : given) {
        if (option->needs.empty()) continue;
        const bool present = std::any_of(given.begin(), given.end(),
                                         [&](const LaunchOption* other) { return other->name == option->needs; });
        if (!present) return usage(std::string(option->name) + " works only with " + std::string(option->needs));
    }
    return std::nullopt;
}

std::string LaunchOptions::help(LaunchPlatform platform, std::string_view whatItDoes) {
    std::string text = "usage: KestrowBrimlet [options]\n"
                       "       KestrowBrimlet --measure [--json]\n"
                       "       KestrowBrimlet --clean [--dry-run] [--item ID]... [--approve ID]... [--permanent]\n"
                       "                      [--report FILE.md|FILE.json]\n\n";
    text += whatItDoes;
    text += "\noptions:\n";
    for (const LaunchOption& option : options()) {
        if (!option.availableOn(platform)) continue;
        std::string head = "  " + std::string(option.name);
        if (option.takesValue()) head += " " + std::string(option.valueName);
        if (!option.needs.empty()) head += "  (with " + std::string(option.needs) + ")";
        text += head + "\n";
        std::string_view rest = option.help;
        while (!rest.empty()) {
            const auto end = rest.find('\n');
            text += "      " + std::string(rest.substr(0, end)) + "\n";
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
    }
    return text;
}

std::string_view LaunchOptions::version() { return KESTROW_VERSION; }

}  // namespace brimlet
