// The one logging facade: the unified log on macOS, standard error elsewhere. Messages are written
// as given; callers build them with the texts the product documents.
#pragma once

#include <string_view>

namespace kestrow::log {

enum class Level { debug, info, error };

// Whose log a line belongs to: the application's own (its bundle identifier on macOS) or the suite
// library's, which every member app links and which logs under one subsystem in all of them.
enum class Subsystem { application, suiteKit };

void write(Subsystem subsystem, Level level, std::string_view category, std::string_view message);

inline void write(Level level, std::string_view category, std::string_view message) {
    write(Subsystem::application, level, category, message);
}
inline void info(std::string_view category, std::string_view message) { write(Level::info, category, message); }
inline void error(std::string_view category, std::string_view message) { write(Level::error, category, message); }

// The suite library's lines.
namespace kit {
inline void info(std::string_view category, std::string_view message) {
    write(Subsystem::suiteKit, Level::info, category, message);
}
inline void error(std::string_view category, std::string_view message) {
    write(Subsystem::suiteKit, Level::error, category, message);
}
}  // namespace kit

}  // namespace kestrow::log
