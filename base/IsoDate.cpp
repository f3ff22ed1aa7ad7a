#include "IsoDate.hpp"

#include <cstdio>

namespace kestrow {

using namespace std::chrono;

Date currentDate() { return time_point_cast<microseconds>(system_clock::now()); }

std::string formatIsoDate(Date date) {
    // Whole seconds, rounded down (toward the past, also before 1970), as the platform's standard
    // ISO 8601 encoder writes them: its decoder, used by the other suite apps, refuses fractions.
    const auto second = floor<seconds>(date);
    const auto day = floor<days>(second);
    const year_month_day ymd{day};
    const long long secondsInDay = (second - day).count();
    char buffer[32];
    const int n =
        std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02lld:%02lld:%02lldZ", static_cast<int>(ymd.year()),
                      static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()), secondsInDay / 3600,
                      (secondsInDay / 60) % 60, secondsInDay % 60);
    return std::string(buffer, static_cast<std::size_t>(n));
}

namespace {

bool digits(std::string_view text, std::size_t pos, std::size_t count, int& out) {
    if (pos + count > text.size()) return false;
    int v = 0;
    for (std::size_t k = 0; k < count; ++k) {
        const char c = text[pos + k];
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    out = v;
    return true;
}

}  // namespace

std::optional<Date> parseIsoDate(std::string_view text) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
    if (!digits(text, 0, 4, y) || text.size() < 19 || text[4] != '-' || !digits(text, 5, 2, mo) || text[7] != '-' ||
        !digits(text, 8, 2, d) || text[10] != 'T' || !digits(text, 11, 2, h) || text[13] != ':' ||
        !digits(text, 14, 2, mi) || text[16] != ':' || !digits(text, 17, 2, s))
        return std::nullopt;
    const year_month_day ymd{year(y), month(static_cast<unsigned>(mo)), day(static_cast<unsigned>(d))};
    if (!ymd.ok() || h > 23 || mi > 59 || s > 59) return std::nullopt;
    std::size_t pos = 19;
    long long micros = 0;
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        std::size_t count = 0;
        long long scale = 100000;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            if (++count > 9) return std::nullopt;
            micros += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (count == 0) return std::nullopt;
    }
    if (pos >= text.size()) return std::nullopt;
    long long offsetSeconds = 0;
    if (text[pos] == 'Z') {
        ++pos;
    } else if (text[pos] == '+' || text[pos] == '-') {
        int oh = 0, om = 0;
        if (!digits(text, pos + 1, 2, oh) || pos + 3 >= text.size() || text[pos + 3] != ':' ||
            !digits(text, pos + 4, 2, om) || oh > 23 || om > 59)
            return std::nullopt;
        offsetSeconds = (oh * 3600LL + om * 60LL) * (text[pos] == '-' ? -1 : 1);
        pos += 6;
    } else {
        return std::nullopt;
    }
    if (pos != text.size()) return std::nullopt;
    const auto local = sys_days(ymd) + hours(h) + minutes(mi) + seconds(s) + microseconds(micros);
    return time_point_cast<microseconds>(local - seconds(offsetSeconds));
}

}  // namespace kestrow
