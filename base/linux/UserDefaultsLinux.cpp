// Linux keeps each domain's defaults in a JSON file of its own under the XDG configuration folder.
#include <sys/stat.h>

#include "../UserDefaults.hpp"

namespace kestrow {

std::unique_ptr<UserDefaults> UserDefaults::standard(const std::string& applicationDomain) {
    if (!isUsableDomain(applicationDomain)) return nullptr;
    return std::make_unique<FileUserDefaults>(FileUserDefaults::defaultFolder(), applicationDomain);
}

std::unique_ptr<UserDefaults> UserDefaults::named(const std::string& domain) {
    if (!isUsableDomain(domain)) return nullptr;
    return std::make_unique<FileUserDefaults>(FileUserDefaults::defaultFolder(), domain);
}

std::optional<FileUserDefaults::Stamp> FileUserDefaults::stampOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return Stamp{st.st_dev,          st.st_ino,         st.st_size,        st.st_mtim.tv_sec,
                 st.st_mtim.tv_nsec, st.st_ctim.tv_sec, st.st_ctim.tv_nsec};
}

}  // namespace kestrow
