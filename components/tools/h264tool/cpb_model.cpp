#include "cpb_model.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace h264tool {
namespace {

// Far above what rounding on the way can amount to.
constexpr double kHalfABit = 0.5;

double seconds(std::uint64_t delay) { return static_cast<double>(delay) / 90000; }

// ITU-T H.264 C.1.1 and C.1.2: all but the fullness.
std::vector<CpbTimes> arrivals_and_removals(std::span<const CpbAccessUnit> units) {
    std::vector<CpbTimes> times(units.size());
    CpbInitialDelay initial;
    double period_begin = 0;  // nominal removal of the unit from which delays count
    for (std::size_t n = 0; n < units.size(); ++n) {
        const CpbAccessUnit& unit = units[n];
        CpbTimes& time = times[n];
        double nominal = period_begin + unit.tick * static_cast<double>(unit.cpb_removal_delay);
        if (unit.buffering_period) {
            initial = *unit.buffering_period;
            if (n == 0) nominal = seconds(initial.delay);
            period_begin = nominal;
        }
        if (n > 0) time.initial_arrival = times[n - 1].final_arrival;
        if (n > 0 && !unit.schedule.cbr) {
            const std::uint64_t offset = unit.buffering_period ? 0 : initial.offset;
            time.initial_arrival = std::max(time.initial_arrival, nominal - seconds(initial.delay + offset));
        }
        const auto bit_rate = static_cast<double>(unit.schedule.bit_rate);
        time.final_arrival = time.initial_arrival + static_cast<double>(unit.bits) / bit_rate;
        time.removal = nominal;
        const double late = time.final_arrival - nominal;
        if (late <= kHalfABit / bit_rate) continue;
        if (unit.low_delay)
            time.removal += unit.tick * std::ceil(late / unit.tick);
        else
            time.underflow = true;
    }
    return times;
}

}  // namespace

std::vector<CpbTimes> run_cpb(std::span<const CpbAccessUnit> units) {
    std::vector<CpbTimes> times = arrivals_and_removals(units);
    std::vector<double> bits_before(1);  // of all units before one
    for (const CpbAccessUnit& unit : units) bits_before.push_back(bits_before.back() + static_cast<double>(unit.bits));
    for (std::size_t n = 0; n < units.size(); ++n) {
        CpbTimes& time = times[n];
        // The unit of which bits arrive at that time, or that comes next.
        const auto arriving = std::partition_point(
            times.begin(), times.end(), [&](const CpbTimes& other) { return other.final_arrival <= time.removal; });
        const auto m = static_cast<std::size_t>(arriving - times.begin());
        double arrived = bits_before[m];
        if (m < units.size())
            arrived += std::max(
                0.0, (time.removal - arriving->initial_arrival) * static_cast<double>(units[m].schedule.bit_rate));
        time.fullness = std::max(0.0, arrived - bits_before[n]);
        time.overflow = time.fullness > static_cast<double>(units[n].schedule.cpb_size) + kHalfABit;
    }
    return times;
}

}  // namespace h264tool
