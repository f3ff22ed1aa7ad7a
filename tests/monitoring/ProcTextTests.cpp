#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <optional>
#include <random>
#include <sstream>
#include <vector>

#include "core/monitoring/linux/ProcText.hpp"

namespace brimlet {
namespace {

std::string fixture(const std::string& name) {
    std::ifstream in(std::string(KESTROW_FIXTURES) + "/" + name, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_TRUE(in.good() || in.eof()) << name;
    return text.str();
}

TEST(ProcText, PidStatWithParenthesesAndBlanksInTheName) {
    const auto stat = proctext::parsePidStat(fixture("proc/4242/stat"));
    ASSERT_TRUE(stat);
    EXPECT_EQ(stat->comm, "my (weird) ) proc");
    EXPECT_EQ(stat->ppid, 17);
    EXPECT_EQ(stat->utime, 250u);
    EXPECT_EQ(stat->stime, 75u);
    EXPECT_EQ(stat->startTicks, 123456u);

    const char* broken[] = {"", "12 (x", "12 x) S 1 2", "12 (x) S 1 2 3 4 5 6 7 8 9 10 11",
                            "12 (x) S z 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1"};
    for (const char* text : broken) EXPECT_FALSE(proctext::parsePidStat(text)) << text;
}

// The fields after the name, from the state letter to rss (fields 3 to 24), with vsize (23) as
// given: the numbers read are whole unsigned 64-bit numbers between blanks or tabs, or nothing is.
TEST(ProcText, PidStatNumbersAtTheirBounds) {
    const auto line = [](const std::string& vsize, const std::string& blank = " ") {
        std::string text = "7 (n) S";
        for (int field = 4; field <= 24; ++field) {
            const std::string value = field == 23 ? vsize : field == 18 ? "-20" : std::to_string(field);
            text += blank + value;
        }
        return text + " 0 0\n";
    };
    const struct {
        std::string text;
        std::optional<std::uint64_t> vsize;
    } cases[] = {
        {line("0"), 0},
        {line("18446744073709551615"), 18446744073709551615ULL},
        {line("18446744073709551616"), std::nullopt},
        {line("99999999999999999999"), std::nullopt},
        {line("4096", " \t "), 4096},
        {line("4096a"), std::nullopt},
        {line("-4096"), std::nullopt},
        {line("+4096"), std::nullopt},
        {"7 (n) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24", 23},
        {"7 (n) S 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24\n", std::nullopt},
    };
    for (const auto& c : cases) {
        const auto stat = proctext::parsePidStat(c.text);
        ASSERT_EQ(stat.has_value(), c.vsize.has_value()) << c.text;
        if (!stat) continue;
        EXPECT_EQ(stat->virtualSize, *c.vsize) << c.text;
        EXPECT_EQ(stat->ppid, 4) << c.text;
        EXPECT_EQ(stat->utime, 14u) << c.text;
        EXPECT_EQ(stat->residentPages, 24u) << c.text;
    }
}

TEST(ProcText, StatusOfUserProcessAndKernelThread) {
    const auto user = proctext::parsePidStatus(fixture("proc/4242/status"));
    EXPECT_EQ(user.uid, 501u);
    EXPECT_EQ(user.rssAnon, 20480ULL * 1024);
    EXPECT_EQ(user.vmSwap, 512ULL * 1024);
    // Kernel threads have no memory lines at all: readable, with no private memory.
    const auto kernel = proctext::parsePidStatus(fixture("proc/2/status"));
    EXPECT_EQ(kernel.uid, 0u);
    EXPECT_EQ(kernel.rssAnon, 0u);
    EXPECT_EQ(kernel.vmSwap, 0u);
    EXPECT_FALSE(proctext::parsePidStatus("Name:\tx\n").uid);
}

TEST(ProcText, StatmSwapsAndLoadavgFields) {
    struct Statm {
        const char* text;
        std::optional<std::uint64_t> anonPages;
    };
    for (const Statm& c : std::vector<Statm>{{"6051 1024 600 5 0 900 0\n", 424},
                                             {"0 0 0 0 0 0 0\n", 0},  // a kernel thread or a zombie
                                             {"6051 1024 1024 5 0 900 0\n", 0},
                                             {"6051 600 1024 5 0 900 0\n", std::nullopt},  // torn: never negative
                                             {"6051 1024\n", std::nullopt},
                                             {"6051\n", std::nullopt},
                                             {"", std::nullopt}}) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(proctext::parseStatmAnonPages(c.text), c.anonPages);
    }

    struct Swaps {
        const char* text;
        bool none;
    };
    const char* header = "Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n";
    for (const Swaps& c :
         std::vector<Swaps>{{header, true},
                            {"", false},  // unreadable or not a swaps file: swap may exist
                            {"Filename Type Size Used Priority", false},
                            {"Filename Type Size Used Priority\n/dev/zram0 partition 4194300 0 100\n", false},
                            {"Filename Type Size Used Priority\n/swapfile file 1048572 12 -2\n", false}}) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(proctext::swapsListNone(c.text), c.none);
    }

    struct Loadavg {
        const char* text;
        std::optional<proctext::TaskCounter> tasks;
    };
    for (const Loadavg& c :
         std::vector<Loadavg>{{"0.52 0.58 0.59 1/467 31342\n", proctext::TaskCounter{467, 31342}},
                              {"9.25 8.78 6.37 12/2301 4194303\n", proctext::TaskCounter{2301, 4194303}},
                              {"0.52 0.58 0.59 1/467\n", std::nullopt},
                              {"0.52 0.58 0.59\n", std::nullopt},
                              {"", std::nullopt}}) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(proctext::parseLoadavgTasks(c.text), c.tasks);
    }
}

TEST(ProcText, DiskstatsCountsWholeDisksOnly) {
    const std::string text = fixture("proc/diskstats");
    // What /sys/block would say: real disks have a device behind them; partitions are not
    // there, loop/zram/dm nodes are virtual.
    auto wholeDisk = [](std::string_view name) { return name == "vda" || name == "nvme0n1"; };
    const auto sum = proctext::parseDiskstats(text, wholeDisk);
    ASSERT_TRUE(sum);
    EXPECT_EQ(sum->bytesRead, (1343202u + 2000u) * 512u);
    EXPECT_EQ(sum->bytesWritten, (5630424u + 1000u) * 512u);
    EXPECT_FALSE(proctext::parseDiskstats(text, [](std::string_view) { return false; }));
    EXPECT_FALSE(proctext::parseDiskstats("   8 0 sda x y\n", [](std::string_view) { return true; }));
}

TEST(ProcText, MeminfoStatPressureAndZram) {
    const auto info = proctext::parseMeminfo(fixture("proc/meminfo"));
    ASSERT_TRUE(info);
    EXPECT_EQ(info->memory.memTotal, 16384000ULL * 1024);
    EXPECT_EQ(info->memory.memAvailable, 4096000ULL * 1024);
    EXPECT_EQ(info->memory.zswap, 2048ULL * 1024);
    EXPECT_EQ(info->memory.sUnreclaim, 50000ULL * 1024);
    EXPECT_EQ(info->swapTotal - info->swapFree, (2097148ULL - 1048576ULL) * 1024);
    EXPECT_FALSE(proctext::parseMeminfo("MemTotal: 5 kB\n"));  // no MemAvailable (kernels before 3.14)

    const std::string stat = fixture("proc/stat");
    const auto ticks = proctext::parseCPULine(stat);
    ASSERT_TRUE(ticks);
    EXPECT_EQ(ticks->user, 3605u);
    EXPECT_EQ(ticks->system, 2158u);
    EXPECT_EQ(ticks->idle, 293990u);
    EXPECT_EQ(ticks->softirq, 91u);
    EXPECT_EQ(proctext::parseBootTime(stat), 1795414540u);
    EXPECT_FALSE(proctext::parseCPULine("cpu0 1 2 3 4\n"));

    const auto stall = proctext::parsePressure(fixture("proc/pressure/memory"));
    ASSERT_TRUE(stall);
    EXPECT_DOUBLE_EQ(stall->some, 12.5);
    EXPECT_DOUBLE_EQ(stall->full, 1.25);
    EXPECT_FALSE(proctext::parsePressure("garbage"));

    EXPECT_EQ(proctext::parseZramMemUsed("  4096  1024  2048  0 0 0 0 0 0\n"), 2048u);
    EXPECT_FALSE(proctext::parseZramMemUsed("1 2"));
    EXPECT_EQ(proctext::startMicros(1'700'000'000, 250, 100), 1'700'000'002'500'000u);
}

TEST(ProcText, DecimalsReadExactlyWithoutTheLocale) {
    struct Case {
        const char* text;
        std::optional<double> value;
    };
    const Case cases[] = {
        {"12.50", 12.5},
        {"0.07", 0.07},
        {"100.00 avg60=1", 100.0},
        {"7", 7.0},
        {"3.", 3.0},
        {"1.2.3", 1.2},
        {"0.000001", 0.000001},
        {"1.500000000000000000000000", 1.5},  // trailing zeros add no digits
        {"9007199254740991", 9007199254740991.0},
        {"9007199254740993", std::nullopt},  // beyond what a double holds exactly
        {"0.12345678901234567", std::nullopt},
        {".5", std::nullopt},
        {"-1.5", std::nullopt},
        {"", std::nullopt},
        {"x1", std::nullopt},
    };
    for (const Case& c : cases) EXPECT_EQ(proctext::leadingDecimal(c.text), c.value) << c.text;

    // Against the C library's correctly rounded reading, in the "C" locale.
    std::mt19937_64 random(20240611);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t whole = random() % 1'000'000;
        const int places = static_cast<int>(random() % 9);
        std::uint64_t fraction = random() % 1'000'000'000;
        std::string text = std::to_string(whole);
        if (places > 0) {
            std::string digits = std::to_string(fraction);
            digits.insert(0, 9 - digits.size(), '0');
            text += "." + digits.substr(0, static_cast<std::size_t>(places));
        }
        ASSERT_EQ(proctext::leadingDecimal(text), std::strtod(text.c_str(), nullptr)) << text;
    }
}

}  // namespace
}  // namespace brimlet
