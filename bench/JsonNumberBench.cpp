// What writing one number costs: formatShortestDouble on kinds of values a record carries, with the
// digits found in integer arithmetic where it can beside the same text found with printf and strtod.
// Prints nanoseconds of CPU a number for each, the best of five rounds, and checks the texts agree.
//
//   json_number_bench [COUNT=100000]
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "base/Json.hpp"

using namespace kestrow;

namespace {

double threadCPU() {
    timespec ts{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// Best of five rounds over all values, in nanoseconds a number.
double nanosecondsPerNumber(const std::vector<double>& values, DigitSearch search) {
    double best = 1e300;
    std::size_t bytes = 0;
    for (int round = 0; round < 5; ++round) {
        const double start = threadCPU();
        for (const double value : values) bytes += formatShortestDouble(value, search).size();
        const double seconds = threadCPU() - start;
        if (seconds < best) best = seconds;
    }
    if (bytes == 0) std::puts("no output");
    return best * 1e9 / static_cast<double>(values.size());
}

}  // namespace

int main(int argc, char** argv) {
    const std::size_t count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100000;
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> fraction(0, 1);
    struct Kind {
        const char* name;
        std::vector<double> values;
    };
    Kind kinds[] = {
        {"timestamp 1795581300.1234567", {}}, {"percentage 37.123456789012345", {}}, {"short 37.5, 12.25", {}}};
    for (std::size_t i = 0; i < count; ++i) {
        kinds[0].values.push_back(1795581300.1234567 + 2.0 * static_cast<double>(i) + fraction(random) * 1e-3);
        kinds[1].values.push_back(100 * fraction(random));
        kinds[2].values.push_back(static_cast<double>(random() % 40000) / 4 + 0.25);
    }
    std::printf("%-32s %12s %12s %8s\n", "values", "arithmetic", "printf", "ratio");
    for (const Kind& kind : kinds) {
        for (const double value : kind.values) {
            if (formatShortestDouble(value) != formatShortestDouble(value, DigitSearch::printfAndStrtod)) {
                std::printf("texts differ for %.17g\n", value);
                return 1;
            }
        }
        const double exact = nanosecondsPerNumber(kind.values, DigitSearch::exactWhereItCan);
        const double printed = nanosecondsPerNumber(kind.values, DigitSearch::printfAndStrtod);
        std::printf("%-32s %9.0f ns %9.0f ns %7.1fx\n", kind.name, exact, printed, printed / exact);
    }
    return 0;
}
