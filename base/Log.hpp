// The one logging facade: the unified log on macOS, standard error elsewhere. Messages are written
// as given; callers build them with the texts the product documents.
#pragma once

#include <string_view>

namespace kestrow::log {

enum class Level { debug, info, error };

void write(Level level, std::string_view category, std::string_view message);

inline void info(std::string_view category, std::string_view message) { write(Level::info, category, message); }
inline void error(std::string_view category, std::string_view message) { write(Level::error, category, message); }

}  // namespace kestrow::log
