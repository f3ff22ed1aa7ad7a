// Finds the personal items a user may choose to clean, each only under an approval: node_modules
// folders of projects, the virtual-machine disks of Docker Desktop and Colima, and installers that
// exist twice byte for byte in Downloads or on the Desktop.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CancelCheck.hpp"
#include "CleanupItem.hpp"
#include "base/IsoDate.hpp"

namespace brimlet {

class ApprovalScanner {
public:
    static constexpr int defaultMaxDepth = 6;
    static constexpr std::chrono::seconds defaultActivityWindow{2'592'000};  // 30 days

    struct VirtualMachine {
        std::string id;
        std::string title;
        std::string detail;
        std::string relativePath;
        std::vector<std::string> processNames;  // the machine runs while any of these does
    };
    static const std::vector<VirtualMachine>& virtualMachines();
    static const std::vector<std::string>& installerExtensions();

    explicit ApprovalScanner(std::string home, int maxDepth = defaultMaxDepth,
                             std::chrono::seconds activityWindow = defaultActivityWindow);

    // Everything, in this order: node_modules folders, virtual machines, duplicate installers.
    std::vector<CleanupItem> scan(const CancelCheck& isCancelled) const;

    std::vector<CleanupItem> nodeModulesItems(const CancelCheck& isCancelled) const;
    std::vector<CleanupItem> virtualMachineItems() const;
    std::vector<CleanupItem> duplicateInstallerItems(const CancelCheck& isCancelled) const;

    // Whether a project was worked on within the window; none when no timestamp can tell.
    std::optional<bool> isActive(const std::string& nodeModules) const;

    // Seams for tests: the names of running processes, and the clock.
    std::function<std::vector<std::string>()> runningProcessNames;
    std::function<kestrow::Date()> now;

private:
    bool underProtectedRoot(const std::string& path) const;

    std::string home_;
    int maxDepth_;
    std::chrono::seconds activityWindow_;
    std::vector<std::string> protectedRoots_;
};

}  // namespace brimlet
