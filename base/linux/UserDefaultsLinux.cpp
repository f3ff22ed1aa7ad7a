// Linux keeps each domain's defaults in a JSON file of its own under the XDG configuration folder.
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

}  // namespace kestrow
