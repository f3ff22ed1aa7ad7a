#include "../Log.hpp"

#include <unistd.h>

#include <string>

namespace kestrow::log {

void write(Subsystem, Level level, std::string_view category, std::string_view message) {
    if (level == Level::debug) return;
    // One write per line, so lines from several threads never interleave.
    std::string line = "KestrowBrimlet[";
    line.append(category);
    line += level == Level::error ? "] error: " : "] ";
    line.append(message);
    line += '\n';
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace kestrow::log
