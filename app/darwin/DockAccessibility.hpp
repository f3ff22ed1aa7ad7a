// What the Dock badges read of the system: the Dock's application icons through Accessibility, and
// whether this process may read them at all.
#pragma once

#include <vector>

#include "core/desktop/DockLayout.hpp"

namespace brimlet::mac::DockAccessibility {

// Whether this process is a trusted Accessibility client. With `prompt`, the system shows its own
// request to allow it when it is not (at most once per launch of the request, as the system decides).
bool isTrusted(bool prompt);

// The Dock's application icons in Dock order, each with its title, the bundle it stands for and
// its frame in Accessibility coordinates (top left of the primary screen, y downwards). Empty when
// the Dock is not running, does not answer or this process is not trusted.
std::vector<DockItem> applicationItems();

}  // namespace brimlet::mac::DockAccessibility
