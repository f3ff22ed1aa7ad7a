#include "OpenFiles.hpp"

#include "SafetyPolicy.hpp"

namespace brimlet::OpenFiles {

std::vector<std::string> mappedPaths(std::string_view maps) {
    std::vector<std::string> paths;
    while (!maps.empty()) {
        const std::size_t end = maps.find('\n');
        std::string_view line = maps.substr(0, end);
        maps = end == std::string_view::npos ? std::string_view() : maps.substr(end + 1);
        // address perms offset dev inode, then blanks, then the path (which may hold blanks itself).
        std::size_t pos = 0;
        bool fields = true;
        for (int field = 0; field < 5 && fields; ++field) {
            const std::size_t blank = line.find(' ', pos);
            if (blank == std::string_view::npos) fields = false;
            else pos = blank + 1;
        }
        if (!fields) continue;
        while (pos < line.size() && line[pos] == ' ') ++pos;
        line = line.substr(pos);
        if (line.empty() || line.front() != '/') continue;
        std::string path;
        path.reserve(line.size());
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line.compare(i, 4, "\\012") == 0) {
                path += '\n';
                i += 3;
            } else {
                path += line[i];
            }
        }
        if (paths.empty() || paths.back() != path) paths.push_back(std::move(path));
    }
    return paths;
}

bool holds(std::string_view path, std::string_view realPath) {
    auto within = [&](std::string_view candidate) { return candidate == realPath || isInside(candidate, realPath); };
    if (within(path)) return true;
    constexpr std::string_view deleted = " (deleted)";
    return path.size() > deleted.size() && path.substr(path.size() - deleted.size()) == deleted &&
           within(path.substr(0, path.size() - deleted.size()));
}

}  // namespace brimlet::OpenFiles
