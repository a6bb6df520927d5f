/// Figures of a subject beside those of its floor, taken in turn in one run, and their ratio.
#ifndef MEASURE_H
#define MEASURE_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

using Nanoseconds = std::int64_t;

inline Nanoseconds Now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// The sample below which the given share (0 to 1) of all samples lies; the samples are reordered.
inline Nanoseconds Quantile(std::vector<Nanoseconds>& samples, double share) {
    const auto index = static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1));
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(index), samples.end());
    return samples[index];
}

/// Runs both in turn, in blocks, so that a drift of the machine's speed meets both alike.
template <typename Subject, typename Floor>
void MeasureInTurn(int rounds, int perRound, Subject subject, Floor floor, std::vector<Nanoseconds>& subjectSamples,
                   std::vector<Nanoseconds>& floorSamples) {
    for (int round = 0; round < rounds; ++round) {
        for (int i = 0; i < perRound; ++i) {
            subjectSamples.push_back(subject());
        }
        for (int i = 0; i < perRound; ++i) {
            floorSamples.push_back(floor());
        }
    }
}

/// Prints one row of the table. Answers whether the ratio keeps its limit.
inline bool PrintRatio(const char* name, std::vector<Nanoseconds>& subject, std::vector<Nanoseconds>& floor,
                       double limit, FILE* out) {
    const double subjectUs = static_cast<double>(Quantile(subject, 0.5)) / 1000.0;
    const double floorUs = static_cast<double>(Quantile(floor, 0.5)) / 1000.0;
    const double ratio = subjectUs / floorUs;
    fprintf(out, "%-42s %9.2f us %9.2f us   %5.2f   <= %4.2f  %s\n", name, subjectUs, floorUs, ratio, limit,
            ratio <= limit ? "ok" : "MISSED");
    return ratio <= limit;
}

/// Prints one row that has no limit, to be compared by people.
inline void PrintComparison(const char* name, std::vector<Nanoseconds>& subject, std::vector<Nanoseconds>& other,
                            FILE* out) {
    const double subjectUs = static_cast<double>(Quantile(subject, 0.5)) / 1000.0;
    const double otherUs = static_cast<double>(Quantile(other, 0.5)) / 1000.0;
    fprintf(out, "%-42s %9.2f us %9.2f us   %5.2f\n", name, subjectUs, otherUs, subjectUs / otherUs);
}

/// Prints a figure without a floor of its own beside its limit. Answers whether it keeps the limit.
inline bool PrintFigure(const char* name, double value, const char* unit, double limit, FILE* out) {
    fprintf(out, "%-42s %9.2f %-4s %16s %12.2f  %s\n", name, value, unit, "at most", limit,
            value <= limit ? "ok" : "MISSED");
    return value <= limit;
}

#endif
