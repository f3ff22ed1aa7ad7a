// Placeholder: the shared status item, the floating panel and the Carbon hot keys.
#include "SystemSuiteUI.hpp"

namespace kestrow::suite::mac {

SuiteStatusItemFactory systemStatusItemFactory(MainLoop&, HotKeyCenter& hotKeys) {
    SuiteStatusItemFactory factory;
    factory.hotKeys = &hotKeys;
    return factory;
}

}  // namespace kestrow::suite::mac
