// Every command-line option in one table: what it is called, whether it takes a value and which
// values it accepts, on which platforms it does something, and its line in "--help". Parsing,
// validation and the help text all come from that table, so they cannot drift apart.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/startup/SuiteLaunch.hpp"

namespace brimlet {

enum class LaunchPlatform { linux, mac };

struct LaunchOption {
    std::string_view name;
    std::string_view valueName;             // empty for a switch
    std::vector<std::string_view> choices;  // empty: any value
    bool onLinux = true;
    bool onMac = true;
    std::string_view help;
    // The option that gives this one its meaning ("--json" only shapes the output of "--measure"):
    // given without it, the arguments are refused rather than quietly ignored.
    std::string_view needs;

    bool takesValue() const { return !valueName.empty(); }
    bool availableOn(LaunchPlatform platform) const { return platform == LaunchPlatform::linux ? onLinux : onMac; }
};

namespace LaunchOptions {
// The whole table, in the order "--help" lists it.
std::span<const LaunchOption> table();

// Checks every argument after the program path against the table for this platform: each
// option known here, each value present (an option name is never taken for a value), one of
// the accepted choices, free of control characters, and each given with the option it needs.
// On the Mac the system's own "-Name value" pairs ("-NSDocumentRevisionsDebugMode YES") are passed over.
std::optional<SuiteLaunch::Exit> validate(const std::vector<std::string>& arguments, LaunchPlatform platform);

// "--help": the usage line, what the program does here, and the options available here.
std::string help(LaunchPlatform platform, std::string_view whatItDoes);

// An argument as it may appear in a message: control characters written as \xNN, so that no
// argument can start a line of its own in the log or on the terminal.
std::string printable(std::string_view argument);

std::string_view version();
}  // namespace LaunchOptions

}  // namespace brimlet
