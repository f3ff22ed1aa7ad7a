#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "base/UserDefaults.hpp"
#include "tests/support/TempFolder.hpp"

namespace kestrow {
namespace {

// The same reading rules for every store: only the right kind of value counts.
void checkKinds(UserDefaults& defaults) {
    struct Case {
        JsonValue stored;
        std::optional<bool> boolean;
        std::optional<double> number;
    };
    const Case cases[] = {
        {JsonValue(true), true, std::nullopt},
        {JsonValue(false), false, std::nullopt},
        {JsonValue(1), true, 1.0},
        {JsonValue(0), false, 0.0},
        {JsonValue(2), std::nullopt, 2.0},
        {JsonValue(-812.5), std::nullopt, -812.5},
        {JsonValue("YES"), std::nullopt, std::nullopt},
        {JsonValue(nullptr), std::nullopt, std::nullopt},
        {JsonValue(JsonArray{JsonValue(1)}), std::nullopt, std::nullopt},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(defaults.set("key", c.stored).ok());
        EXPECT_EQ(defaults.boolean("key"), c.boolean) << (writeJson(c.stored).ok() ? *writeJson(c.stored) : "?");
        EXPECT_EQ(defaults.number("key"), c.number) << (writeJson(c.stored).ok() ? *writeJson(c.stored) : "?");
        EXPECT_EQ(defaults.value("key"), c.stored);
    }
    ASSERT_TRUE(defaults.remove("key").ok());
    EXPECT_FALSE(defaults.value("key"));
    EXPECT_FALSE(defaults.boolean("key"));
    ASSERT_TRUE(defaults.remove("never.set").ok());
}

TEST(UserDefaults, InMemoryAndFileStoresReadOnlyTheRightKinds) {
    InMemoryUserDefaults memory;
    checkKinds(memory);
    testing::TempFolder temp;
    FileUserDefaults file(temp / "config/kestrow", "com.kestrow.brimlet");
    checkKinds(file);
}

TEST(UserDefaults, FileStoreIsPrivateSharedBetweenInstancesAndSurvivesDamage) {
    testing::TempFolder temp;
    const std::string folder = temp / "deep/config/kestrow";
    FileUserDefaults first(folder, "com.kestrow.brimlet.qa");
    EXPECT_EQ(first.path(), folder + "/com.kestrow.brimlet.qa.json");
    EXPECT_FALSE(first.value("KestrowSuite.showOwnIcon"));  // nothing there yet, nothing created
    EXPECT_NE(::access(folder.c_str(), F_OK), 0);

    ASSERT_TRUE(first.set("KestrowSuite.showOwnIcon", JsonValue(true)).ok());
    struct stat st {};
    ASSERT_EQ(::stat(first.path().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat(folder.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);

    FileUserDefaults second(folder, "com.kestrow.brimlet.qa");
    EXPECT_EQ(second.boolean("KestrowSuite.showOwnIcon"), true);
    ASSERT_TRUE(second.set("NSStatusItem Preferred Position KestrowSuite", JsonValue(412.0)).ok());
    EXPECT_EQ(first.number("NSStatusItem Preferred Position KestrowSuite"), 412.0);
    EXPECT_EQ(first.boolean("KestrowSuite.showOwnIcon"), true);  // the other key was kept

    // Another domain is another file.
    FileUserDefaults other(folder, "com.kestrow.fennick");
    EXPECT_FALSE(other.value("KestrowSuite.showOwnIcon"));

    // Damage reads as empty, and the next write repairs the file.
    testing::writeFile(first.path(), "{\"KestrowSuite.showOwnIcon\": tru");
    EXPECT_FALSE(first.boolean("KestrowSuite.showOwnIcon"));
    testing::writeFile(first.path(), "[true]");
    EXPECT_FALSE(first.value("KestrowSuite.showOwnIcon"));
    ASSERT_TRUE(first.set("a", JsonValue(1)).ok());
    EXPECT_EQ(second.number("a"), 1.0);

    // A link in place of the file is never followed.
    const std::string target = temp / "elsewhere.json";
    testing::writeFile(target, "{\"KestrowSuite.showOwnIcon\": true}");
    ASSERT_EQ(::unlink(first.path().c_str()), 0);
    ASSERT_EQ(::symlink(target.c_str(), first.path().c_str()), 0);
    EXPECT_FALSE(first.value("KestrowSuite.showOwnIcon"));
}

TEST(UserDefaults, DomainsAndTheDefaultFolder) {
    for (const std::string& bad : std::vector<std::string>{"", ".hidden", "a/b", std::string(201, 'x')}) {
        EXPECT_FALSE(UserDefaults::isUsableDomain(bad)) << bad;
        EXPECT_EQ(UserDefaults::named(bad), nullptr) << bad;
    }
    EXPECT_TRUE(UserDefaults::isUsableDomain("com.kestrow.brimlet.qa"));

    testing::TempFolder temp;
    const char* saved = std::getenv("XDG_CONFIG_HOME");
    const std::string restore = saved ? saved : "";
    ::setenv("XDG_CONFIG_HOME", temp.path().c_str(), 1);
    EXPECT_EQ(FileUserDefaults::defaultFolder(), temp.path() + "/kestrow");
    auto named = UserDefaults::named("com.kestrow.brimlet.qa");
    ASSERT_NE(named, nullptr);
    ASSERT_TRUE(named->set("x", JsonValue(true)).ok());
    EXPECT_EQ(::access((temp.path() + "/kestrow/com.kestrow.brimlet.qa.json").c_str(), F_OK), 0);
    ::setenv("XDG_CONFIG_HOME", "relative/path", 1);  // not absolute: ignored
    EXPECT_EQ(FileUserDefaults::defaultFolder().find("relative"), std::string::npos);
    if (saved) ::setenv("XDG_CONFIG_HOME", restore.c_str(), 1);
    else ::unsetenv("XDG_CONFIG_HOME");
}

}  // namespace
}  // namespace kestrow
