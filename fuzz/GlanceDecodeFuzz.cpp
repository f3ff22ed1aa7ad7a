// Feeds arbitrary bytes to the glance decoder: it must never crash, and whatever it accepts must
// encode again and decode to the same record, its numbers rounded to hundredths as the writer does.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "suite/protocol/GlanceRecord.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kestrow::suite;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const GlanceRead result = GlanceCodec::decode(bytes, "brimlet.json");
    if (const GlanceRecord* record = result.ok() ? &result.value() : nullptr) {
        const auto encoded = GlanceCodec::encode(*record);
        if (encoded.failed()) {
            // Only the size rule may refuse what was read: rounding never lengthens a valid value much,
            // but a shortest-form number can print longer than its source.
            if (encoded.status().cause() != kestrow::Cause::resourceExhausted) std::abort();
            return 0;
        }
        GlanceRecord expected = *record;
        for (GlanceMetric& metric : expected.metrics)
            if (double* v = std::get_if<double>(&metric.value)) *v = std::round(*v * 100) / 100;
        const GlanceRead again = GlanceCodec::decode(*encoded, "brimlet.json");
        if (again.failed() || !(again.value() == expected)) std::abort();
    }
    return 0;
}
