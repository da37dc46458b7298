#include "apps/padreport/figures.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace padreport {

namespace {

constexpr double QUARTILES_APART = 1.349;  // in standard deviations of a normal distribution

constexpr std::size_t PARTS_MIN = 4;
constexpr std::uint64_t PART_SAMPLES_MIN = 5;

constexpr std::int32_t GAP_INTERVALS = 3;
constexpr std::int32_t GAP_MILLISECONDS_MIN = 20;
constexpr double MILLISECONDS_PER_SECOND = 1000;

/// One value of a button: quantiles on both sides, of the whole log or of one part.
struct BothSides {
    Quantiles rest;
    Quantiles touched;
};

double GetMedian(const Quantiles& quantiles) {
    return quantiles.median;
}

double GetRise(const BothSides& sides) {
    return GetMedian(sides.touched) - GetMedian(sides.rest);
}

double GetSeparation(const BothSides& sides) {
    return GetRise(sides) / GetUnit(GetSpread(sides.rest));
}

bool IsEnough(const Quantiles& quantiles) {
    return quantiles.count >= PART_SAMPLES_MIN;
}

/// @param isEnough tells of a part whether it has the samples for the figure
/// @param calculate gives the figure of a part
template <class IsEnoughForIt, class Calculate>
std::optional<double> EstimateUncertainty(const std::array<BothSides, PART_COUNT>& parts,
                                          IsEnoughForIt isEnough, Calculate calculate) {
    std::vector<double> figures;
    for (const BothSides& part : parts) {
        if (isEnough(part)) {
            figures.push_back(calculate(part));
        }
    }
    if (figures.size() < PARTS_MIN) {
        return std::nullopt;
    }
    const auto count = static_cast<double>(figures.size());
    double sum = 0;
    for (const double figure : figures) {
        sum += figure;
    }
    double squares = 0;
    for (const double figure : figures) {
        squares += (figure - sum / count) * (figure - sum / count);
    }
    return std::sqrt(squares / (count - 1) / count);
}

std::optional<SideFigures> MakeSideFigures(const BothSides& whole,
                                           const std::array<BothSides, PART_COUNT>& parts,
                                           Quantiles BothSides::*side) {
    const Quantiles& quantiles = whole.*side;
    if (quantiles.count == 0) {
        return std::nullopt;
    }
    const auto isEnough = [side](const BothSides& part) { return IsEnough(part.*side); };
    const auto estimate = [&](double (*calculate)(const Quantiles&)) {
        return EstimateUncertainty(parts, isEnough,
                                   [&](const BothSides& part) { return calculate(part.*side); });
    };
    SideFigures figures;
    figures.count = quantiles.count;
    figures.min = quantiles.min;
    figures.max = quantiles.max;
    figures.median = {GetMedian(quantiles), estimate(GetMedian)};
    figures.spread = {GetSpread(quantiles), estimate(GetSpread)};
    return figures;
}

ValueFigures MakeValueFigures(const ButtonStatistics& statistics, unsigned value) {
    std::array<BothSides, PART_COUNT> parts;
    for (std::size_t part = 0; part < PART_COUNT; ++part) {
        parts[part] = {statistics.GetPart(part, Side::REST, value).GetQuantiles(),
                       statistics.GetPart(part, Side::TOUCHED, value).GetQuantiles()};
    }
    const BothSides whole = {statistics.GetCounts(Side::REST, value).GetQuantiles(),
                             statistics.GetCounts(Side::TOUCHED, value).GetQuantiles()};
    ValueFigures figures;
    figures.rest = MakeSideFigures(whole, parts, &BothSides::rest);
    figures.touched = MakeSideFigures(whole, parts, &BothSides::touched);
    if (figures.rest && figures.touched) {
        const auto isEnough = [](const BothSides& part) {
            return IsEnough(part.rest) && IsEnough(part.touched);
        };
        figures.rise = {GetRise(whole), EstimateUncertainty(parts, isEnough, GetRise)};
        figures.separation = {GetSeparation(whole), EstimateUncertainty(parts, isEnough, GetSeparation)};
    }
    figures.driftPerMinute = statistics.GetDrift().GetPerMinute(value);
    return figures;
}

void AddIntervals(const ValueCounts& intervals, ButtonFigures& figures) {
    const Quantiles quantiles = intervals.GetQuantiles();
    figures.gapLimit =
        std::max<std::int64_t>(GAP_MILLISECONDS_MIN, std::int64_t{GAP_INTERVALS} * quantiles.median);
    intervals.ForEach([&](std::int32_t interval, std::uint64_t count) {
        figures.timedMilliseconds += interval * static_cast<std::int64_t>(count);
        if (interval > figures.gapLimit) {
            figures.gaps += count;
            figures.longestGap = interval;
        }
    });
    if (figures.timedMilliseconds > 0) {
        figures.rate = static_cast<double>(quantiles.count) * MILLISECONDS_PER_SECOND /
                       static_cast<double>(figures.timedMilliseconds);
    }
}

}  // namespace

double GetSpread(const Quantiles& quantiles) {
    return (static_cast<double>(quantiles.upperQuartile) - quantiles.lowerQuartile) / QUARTILES_APART;
}

ButtonFigures MakeButtonFigures(unsigned button, const ButtonStatistics& statistics) {
    ButtonFigures figures;
    figures.button = button;
    figures.samples = statistics.GetSampleCount();
    figures.untimedSamples = statistics.GetUntimedCount();
    figures.edgeSamples = statistics.GetEdgeCount();
    figures.isTouchedNow = statistics.IsTouchedNow();
    AddIntervals(statistics.GetIntervals(), figures);

    figures.touches = statistics.GetTouches().GetCount();
    const Quantiles lengths = statistics.GetTouches().GetLengths().GetQuantiles();
    if (lengths.count > 0) {
        figures.touchLengths = {lengths.min, lengths.median, lengths.max};
    }
    for (unsigned value = 0; value < VALUE_COUNT; ++value) {
        figures.values[value] = MakeValueFigures(statistics, value);
    }
    return figures;
}

LogFigures MakeLogFigures(std::string name, std::string readTrouble, const LogReader& reader,
                          const LogStatistics& statistics) {
    LogFigures figures;
    figures.name = std::move(name);
    figures.readTrouble = std::move(readTrouble);
    figures.lines = reader.GetLineCounts();
    const Timeline& timeline = statistics.GetTimeline();
    figures.runs = timeline.GetRuns();
    figures.fallingStamps = timeline.GetFallingStamps();
    figures.jumps = timeline.GetJumps();
    figures.timedMilliseconds = timeline.GetTimedMilliseconds();
    figures.lastMilliseconds = timeline.GetLastMilliseconds();
    figures.info = statistics.GetInfo();
    figures.hasChangedInfo = statistics.HasChangedInfo();
    for (const auto& [button, buttonStatistics] : statistics.GetButtons()) {
        figures.buttons.push_back(MakeButtonFigures(button, *buttonStatistics));
        const auto threshold = figures.info.thresholds.find(button);
        if (threshold != figures.info.thresholds.end()) {
            figures.buttons.back().threshold = threshold->second;
        }
    }
    return figures;
}

}  // namespace padreport
