// Every entry a platform must provide to the lower floors is defined in this build, and the live ones
// answer on this machine. The lists in each floor's Platform.hpp are taken whole here, so a port
// missing an entry fails this test's link, naming the entry.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <tuple>

#include "base/Platform.hpp"
#include "core/Platform.hpp"
#include "suite/protocol/Platform.hpp"
#include "suite/ui/Platform.hpp"

namespace {

template <typename Seams>
std::size_t definedEntries(const Seams& seams) {
    return std::apply([](auto... seam) { return (std::size_t{0} + ... + (seam != nullptr ? 1U : 0U)); }, seams);
}

TEST(PlatformSeams, EveryEntryIsDefined) {
    using namespace kestrow::platform;
    using brimlet::platform::coreSeams;
    EXPECT_EQ(definedEntries(baseSeams), std::tuple_size_v<std::remove_const_t<decltype(baseSeams)>>);
    EXPECT_EQ(definedEntries(suiteProtocolSeams), std::tuple_size_v<std::remove_const_t<decltype(suiteProtocolSeams)>>);
    EXPECT_EQ(definedEntries(suiteUISeams), std::tuple_size_v<std::remove_const_t<decltype(suiteUISeams)>>);
    EXPECT_EQ(definedEntries(coreSeams), std::tuple_size_v<std::remove_const_t<decltype(coreSeams)>>);

    // The live entries answer here: this process among the processes, a data volume with blocks, a
    // catalog to clean, a continuous clock that moves forward.
    const std::vector<std::int32_t> pids = brimlet::liveProcessReading().allPIDs();
    EXPECT_NE(std::find(pids.begin(), pids.end(), static_cast<std::int32_t>(::getpid())), pids.end());
    const std::vector<std::string> volumes = brimlet::DiskSpace::dataVolumeCandidates();
    ASSERT_FALSE(volumes.empty());
    EXPECT_TRUE(std::any_of(volumes.begin(), volumes.end(), [](const std::string& volume) {
        return brimlet::DiskSpace::readBlocks(volume).has_value();
    }));
    EXPECT_FALSE(brimlet::CleanupCatalog::entries().empty());
    const kestrow::ContinuousClock::time_point before = kestrow::ContinuousClock::now();
    EXPECT_LE(before, kestrow::ContinuousClock::now());
    EXPECT_GT(brimlet::TickClock::current().nanoseconds(1000), 0U);
}

}  // namespace
