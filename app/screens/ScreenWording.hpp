// The few words of the shared screens that name the machine itself. On a Mac they say "Mac"; a
// Linux user reads them about "this computer". Each platform gives its own in its folder; the
// defaults are the Mac's.
#pragma once

#include <string>

namespace brimlet {

struct ScreenWording {
    std::string thermalCaption = "Is the Mac throttling?";
    std::string pressureCaption = "How hard macOS works to free memory";
    std::string waitingForFirstSample = "Reading the Mac\u2026";
    std::string graphicsNotReported = "Not reported by this Mac";
    std::string onThisMachine = "on this Mac";  // after "123.4 GB free of 494.4 GB"

    static const ScreenWording& forThisPlatform();
    bool operator==(const ScreenWording&) const = default;
};

}  // namespace brimlet
