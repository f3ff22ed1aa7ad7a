#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

#include "core/cleanup/SafetyPolicy.hpp"
#include "tests/support/TempFolder.hpp"

namespace brimlet {
namespace {

namespace fs = std::filesystem;
using kestrow::testing::TempFolder;

struct PolicyFixture : ::testing::Test {
    TempFolder temp;
    std::string home = temp / "home";
    std::string outside = temp / "outside";

    void SetUp() override {
        for (const char* dir :
             {"home/.npm/_cacache/ab", "home/Library/Developer/Xcode/DerivedData/App-x", "home/Library/Keychains",
              "home/Library/Application Support/MobileSync/Backup", "home/Downloads/Photos Library.photoslibrary",
              "home/Downloads/sub", "home/Desktop", "outside/cache"})
            fs::create_directories(temp / dir);
        kestrow::testing::writeFile(home + "/.npm/_cacache/ab/blob", "x");
        kestrow::testing::writeFile(home + "/.npmrc-x/data", "x");
        kestrow::testing::writeFile(home + "/Library/Keychains-old/x", "x");
        kestrow::testing::writeFile(home + "/Library/Keychains/login.keychain-db", "x");
        kestrow::testing::writeFile(home + "/Downloads/Photos Library.photoslibrary/db", "x");
        kestrow::testing::writeFile(home + "/Downloads/a.keychain.txt", "x");
        kestrow::testing::writeFile(outside + "/cache/file", "x");
        fs::create_symlink(outside + "/cache", home + "/.npm/_cacache/link-out");         // a link, even if allowed
        fs::create_symlink(home + "/.npm/_cacache/ab", home + "/.npm/_cacache/link-in");  // target allowed
        fs::create_symlink(outside, home + "/Library/Caches-link");                       // parent leads out
        fs::create_symlink(home + "/Library/Keychains", home + "/Downloads/keys");        // protected via link
    }
};

TEST_F(PolicyFixture, TestsRunInOrderWithFixedReasons) {
    const SafetyPolicy policy(home + "/");
    const std::string npm = home + "/.npm", derived = home + "/Library/Developer/Xcode/DerivedData";
    const std::string downloads = home + "/Downloads", support = home + "/Library/Application Support";
    struct Case {
        std::string path;
        std::vector<std::string> allowed;
        std::string expected;  // a refusal, or "allowed <path>"
    };
    const Case cases[] = {
        {home + "/.npm/missing", {npm}, "Already gone"},
        {home + "/.npm/_cacache/link-out", {npm}, "Is a symbolic link; links are never followed for deletion"},
        {home + "/.npm/_cacache/link-in", {npm}, "Is a symbolic link; links are never followed for deletion"},
        {home + "/.npm/_cacache/link-in/blob", {npm}, "allowed " + home + "/.npm/_cacache/ab/blob"},
        {home, {home}, "Refusing to delete the root or home folder"},
        {home + "/.npm/..", {home}, "Refusing to delete the root or home folder"},
        {"/", {"/"}, "Refusing to delete the root or home folder"},
        {outside + "/cache", {outside}, "Outside the home folder"},
        {home + "/Library/Caches-link/cache", {home + "/Library"}, "Outside the home folder"},
        {home + "/.npm/_cacache", {}, "Not on the cleanup allowlist"},
        {home + "/.npm/_cacache", {home + "/nowhere"}, "Not on the cleanup allowlist"},
        {derived, {derived}, "allowed " + derived},
        {derived + "/", {derived + "/"}, "allowed " + derived},
        {home + "/Library/Developer/Xcode", {derived}, "Not on the cleanup allowlist"},
        {derived + "/../../../Developer/Xcode/DerivedData/App-x", {derived}, "allowed " + derived + "/App-x"},
        {npm, {npm}, "allowed " + npm},
        {npm, {home}, "Too close to the home folder"},  // hidden, but not itself the allowed root
        {downloads, {downloads}, "Too close to the home folder"},
        {home + "/Library/Keychains/login.keychain-db", {home + "/Library"}, "Protected: ~/Library/Keychains"},
        {home + "/Downloads/keys/login.keychain-db", {downloads}, "Not on the cleanup allowlist"},
        {home + "/Downloads/keys/login.keychain-db", {home + "/Library"}, "Protected: ~/Library/Keychains"},
        {support, {support}, "Contains protected data: ~/Library/Application Support/MobileSync/Backup"},
        {home + "/Downloads/Photos Library.photoslibrary/db", {downloads}, "Protected library or backup"},
        {home + "/Downloads/a.keychain.txt", {downloads}, "allowed " + home + "/Downloads/a.keychain.txt"},
        {home + "/Downloads/sub", {downloads}, "allowed " + home + "/Downloads/sub"},
        // A folder that merely begins with an allowed root's name is not inside it.
        {home + "/.npmrc-x", {npm}, "Not on the cleanup allowlist"},
        {home + "/.npmrc-x/data", {npm}, "Not on the cleanup allowlist"},
        // Nor is one beside a protected root, which stays as free as the rest of its allowed root.
        {home + "/Library/Keychains-old/x", {home + "/Library"}, "allowed " + home + "/Library/Keychains-old/x"},
    };
    for (const Case& c : cases) {
        const SafetyDecision d = policy.check(c.path, c.allowed);
        const std::string got = d.isAllowed() ? "allowed " + *d.allowedPath() : *d.refusal();
        EXPECT_EQ(got, c.expected) << c.path;
    }
}

TEST_F(PolicyFixture, ProtectedRootsAndEndings) {
    const SafetyPolicy policy(home);
    ASSERT_GE(policy.neverTouchRoots().size(), 14u);
    EXPECT_EQ(policy.neverTouchRoots()[0], policy.homePath() + "/.claude/projects");  // missing: spelled out
    EXPECT_EQ(policy.neverTouchRoots()[4], policy.homePath() + "/Library/Keychains");
    struct Case {
        const char* path;
        bool isProtected;
    };
    for (auto [path, isProtected] : {Case{"/a/Photos.photoslibrary/x", true}, Case{"/a/b.backupbundle", true},
                                     Case{"/Volumes/T/Backups.backupdb/2026", true}, Case{"/k/login.keychain", true},
                                     Case{"/k/login.keychain-db", true}, Case{"/k/a.keychain.txt", false},
                                     Case{"/k/keychain", false}, Case{"/x/.photoslibrary.bak/y", false}})
        EXPECT_EQ(NeverTouch::hasProtectedComponent(path), isProtected) << path;
}

TEST_F(PolicyFixture, ProtectedRootReachedThroughAParentLink) {
    // ~/Library/Vault is a link to the keychains; a path through it resolves into a protected root.
    fs::create_symlink(home + "/Library/Keychains", home + "/Library/Vault");
    const SafetyPolicy policy(home);
    EXPECT_EQ(*policy.check(home + "/Library/Vault/login.keychain-db", {home + "/Library"}).refusal(),
              "Protected: ~/Library/Keychains");
}

// Random trees of folders and links under a temporary home, random allowlists: whatever `check`
// allows is a real, non-link path strictly inside home and inside a resolved allowed root, neither at
// nor above a protected root.
TEST(SafetyPolicyProperty, NeverAllowsWhatItMustNot) {
    std::mt19937 random(20261123);
    const char* names[] = {"a", "b", ".c", "Library", "Keychains", "x.photoslibrary", "Downloads", ".ssh", "d"};
    int allowedCount = 0, checks = 0;
    for (int round = 0; round < 40; ++round) {
        TempFolder temp;
        const std::string home = temp / "home";
        fs::create_directories(home + "/Library/Keychains");
        fs::create_directories(temp / "outside/z");
        std::vector<std::string> paths = {home, home + "/Library", home + "/Library/Keychains", temp / "outside",
                                          temp / "outside/z"};
        for (int i = 0; i < 30; ++i) {
            const std::string parent = paths[random() % paths.size()];
            const std::string child = parent + "/" + names[random() % std::size(names)];
            std::error_code ignored;
            const int kind = static_cast<int>(random() % 4);
            if (kind == 0) {
                fs::create_symlink(paths[random() % paths.size()], child, ignored);
            } else if (kind == 1) {
                std::ofstream(child) << "data";
            } else {
                fs::create_directories(child, ignored);
            }
            if (!ignored) paths.push_back(child);
        }
        const SafetyPolicy policy(home);
        for (int trial = 0; trial < 60; ++trial) {
            std::vector<std::string> allowed;
            for (int k = static_cast<int>(random() % 3); k >= 0; --k) allowed.push_back(paths[random() % paths.size()]);
            std::string path = paths[random() % paths.size()];
            if (random() % 4 == 0) path += "/../" + std::string(names[random() % std::size(names)]);
            const SafetyDecision d = policy.check(path, allowed);
            ++checks;
            if (!d.isAllowed()) continue;
            ++allowedCount;
            const std::string& p = *d.allowedPath();
            struct stat st {};
            ASSERT_EQ(::lstat(path.c_str(), &st), 0);
            EXPECT_FALSE(S_ISLNK(st.st_mode)) << path;
            EXPECT_EQ(resolveRealPath(path), p);
            EXPECT_TRUE(isInside(p, policy.homePath())) << p;
            bool underRoot = false;
            for (const auto& root : allowed) {
                auto r = resolveRealPath(root);
                if (r && (p == *r || isInside(p, *r))) underRoot = true;
            }
            EXPECT_TRUE(underRoot) << p;
            for (const auto& root : policy.neverTouchRoots()) {
                EXPECT_FALSE(p == root || isInside(p, root) || isInside(root, p)) << p << " vs " << root;
            }
            EXPECT_FALSE(NeverTouch::hasProtectedComponent(p)) << p;
        }
    }
    EXPECT_GT(allowedCount, 20) << "the generator should reach allowed paths too (of " << checks << ")";
}

}  // namespace
}  // namespace brimlet
