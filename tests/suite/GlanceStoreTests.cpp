#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "tests/support/TempFolder.hpp"
#include "suite/protocol/SuiteFolder.hpp"

namespace kestrow::suite {
namespace {

using kestrow::testing::TempFolder;
using kestrow::testing::writeFile;

GlanceRecord record(SuiteApp app, double at, double memory = 50) {
    return GlanceRecord(app, false, GlanceState::running, at, 10, GlanceLevel::ok,
                        {{"mem", "Memory", memory, "%", GlanceLevel::ok}});
}

TEST(GlanceStore, WritesAtomicallyAndReadsEveryone) {
    TempFolder temp;
    const SuiteFolder folder(temp.path() + "/Suite/./");
    ASSERT_TRUE(folder.prepare().ok());
    struct stat st{};
    ASSERT_EQ(::stat(folder.glancesURL().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);

    const GlanceStore store{folder};
    ASSERT_TRUE(store.write(record(SuiteApp::brimlet, 100)).ok());
    ASSERT_TRUE(store.write(record(SuiteApp::fennick, 100)).ok());
    writeFile(folder.glanceURL(SuiteApp::garrow), "not json");
    ::mkdir(folder.glanceURL(SuiteApp::jessap).c_str(), 0700);
    ::symlink(folder.glanceURL(SuiteApp::brimlet).c_str(), folder.glanceURL(SuiteApp::corvane).c_str());
    ::mkfifo(folder.glanceURL(SuiteApp::hollin).c_str(), 0600);

    const auto all = store.readAll();
    ASSERT_EQ(all.size(), 6u);  // dismel has no file
    EXPECT_EQ(*all.at(SuiteApp::brimlet).record(), record(SuiteApp::brimlet, 100));
    EXPECT_EQ(*all.at(SuiteApp::garrow).reason(), "JSON");
    EXPECT_EQ(*all.at(SuiteApp::jessap).reason(), "not a regular file");
    EXPECT_EQ(*all.at(SuiteApp::corvane).reason(), "unreadable (errno " + std::to_string(ELOOP) + ")");
    EXPECT_EQ(*all.at(SuiteApp::hollin).reason(), "not a regular file");  // and it did not block
    EXPECT_FALSE(store.read(SuiteApp::dismel));
    EXPECT_EQ(store.write(GlanceRecord(SuiteApp::brimlet, false, GlanceState::running, 1, 99, GlanceLevel::ok, {})),
              kestrow::Status::failure("ttl: 3-60"));
}

// Only a missing file is missing: a plain file where the "glances" folder should be makes every
// record unreadable, and says why.
TEST(GlanceStore, APlainFileInPlaceOfTheFolderIsNotMissing) {
    TempFolder temp;
    const SuiteFolder folder(temp.path());
    writeFile(folder.glancesURL(), "not a folder");
    const GlanceStore store{folder};
    const auto all = store.readAll();
    ASSERT_EQ(all.size(), SuiteApp::allCases().size());
    for (const auto& [app, result] : all)
        EXPECT_EQ(*result.reason(), "unreadable (errno " + std::to_string(ENOTDIR) + ")") << app.rawValue();
    EXPECT_EQ(safeRead(temp / "absent/brimlet.json", 10), (SafeRead{SafeRead::Missing{}}));
    EXPECT_EQ(safeRead(temp / "absent.json", 10), (SafeRead{SafeRead::Missing{}}));
}

TEST(GlanceStore, ProtectedReadLimitsAndOwner) {
    TempFolder temp;
    const std::string big = temp / "big.json";
    writeFile(big, std::string(10 << 20, 'x'));
    const SafeRead read = safeRead(big, GlanceStore::readLimit);
    ASSERT_TRUE(std::holds_alternative<SafeRead::Data>(read.value));
    EXPECT_EQ(std::get<SafeRead::Data>(read.value).bytes.size(), 2049u);
    EXPECT_EQ(*GlanceCodec::decode(std::get<SafeRead::Data>(read.value).bytes, "brimlet.json").reason(),
              "size: at most 2,048 bytes");

    const std::string foreign = temp / "foreign.json";
    writeFile(foreign, "{}");
    if (::getuid() != 0) GTEST_SKIP() << "changing a file's owner needs root";
    ASSERT_EQ(::chown(foreign.c_str(), 4242, 4242), 0);
    EXPECT_EQ(safeRead(foreign, 100), (SafeRead{SafeRead::Refused{"not owned by this user"}}));
}

TEST(GlanceStore, ReadersNeverSeeATornRecord) {
    TempFolder temp;
    const SuiteFolder folder(temp.path());
    ASSERT_TRUE(folder.prepare().ok());
    const GlanceStore store{folder};
    ASSERT_TRUE(store.write(record(SuiteApp::brimlet, 0)).ok());
    std::atomic<bool> done{false};
    std::atomic<int> writeFailures{0};
    std::thread writer([&] {
        for (int i = 1; i <= 800; ++i) {
            if (store.write(record(SuiteApp::brimlet, i, i % 2 ? 12.5 : 99.99)).failed()) ++writeFailures;
        }
        done = true;
    });
    int reads = 0, bad = 0;
    while (!done || reads < 5000) {
        auto result = store.read(SuiteApp::brimlet);
        ++reads;
        if (!result || !result->record()) ++bad;
    }
    writer.join();
    EXPECT_EQ(bad, 0) << "of " << reads << " reads";
    EXPECT_EQ(writeFailures, 0);
}

TEST(SuiteFolder, ReachableFoldersInsideAndOutsideASandbox) {
    ::unsetenv("APP_SANDBOX_CONTAINER_ID");
    const auto plain = SuiteFolder::reachable(std::nullopt);
    ASSERT_EQ(plain.size(), 1u);
    EXPECT_EQ(plain[0].url, SuiteFolder::realHome() + "/Library/Application Support/Kestrow/Suite");
    ::setenv("APP_SANDBOX_CONTAINER_ID", "", 1);  // present is enough, whatever its value
    EXPECT_TRUE(SuiteFolder::reachable(std::string("group.kestrow.suite")).empty());  // no group containers here
    ::unsetenv("APP_SANDBOX_CONTAINER_ID");
}

TEST(PublishSchedule, ChangedAtOnceUnchangedAtHalfLife) {
    PublishSchedule schedule;
    const GlanceRecord first = record(SuiteApp::brimlet, 1000);
    EXPECT_TRUE(schedule.isDue(first, 1000));
    schedule.didWrite(first);
    EXPECT_FALSE(schedule.isDue(record(SuiteApp::brimlet, 1004.9), 1004.9));
    EXPECT_TRUE(schedule.isDue(record(SuiteApp::brimlet, 1005), 1005));
    EXPECT_TRUE(schedule.isDue(record(SuiteApp::brimlet, 1001, 51), 1001));  // a metric changed
    schedule.forceNext();
    EXPECT_TRUE(schedule.isDue(first, 1000));
}

}  // namespace
}  // namespace kestrow::suite
