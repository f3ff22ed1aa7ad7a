// Feeds arbitrary bytes to the shared settings decoder: it must never crash, and what it reads must
// survive its own encoding unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "suite/protocol/SuiteState.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kestrow::suite;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const SuiteSettings settings = SuiteSettings::decode(bytes);
    const SuiteSettings again = SuiteSettings::decode(settings.encode());
    if (!(SuiteSettings::decode(again.encode()) == again)) std::abort();
    return 0;
}
