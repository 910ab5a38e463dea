#ifndef BACKUPFRAME_BENCHTABLE_H
#define BACKUPFRAME_BENCHTABLE_H

// Shared by the benchmarks: medians, percentiles and the one table `make bench` prints.
// A row is a case, the library's figure, its baseline's figure and library / baseline.

#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace BenchTable {

inline double percentile(std::vector<double> samples, double p)
{
    if (samples.empty())
        return 0;
    std::sort(samples.begin(), samples.end());
    const size_t at = std::min(samples.size() - 1, static_cast<size_t>(p * (samples.size() - 1) + 0.5));
    return samples[at];
}

inline double median(const std::vector<double>& samples)
{
    return percentile(samples, 0.5);
}

// Seconds taken by one call.
inline double seconds(const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return timer.nsecsElapsed() / 1e9;
}

// Median of runs of the work, in seconds.
inline double medianSeconds(int runs, const std::function<void()>& work)
{
    std::vector<double> samples;
    for (int run = 0; run < runs; ++run)
        samples.push_back(seconds(work));
    return median(samples);
}

inline void header()
{
    std::printf("%-46s %16s %16s %7s\n", "case", "library", "baseline", "ratio");
    std::fflush(stdout);
}

// One row; the ratio is library / baseline whatever the unit.
inline void row(const std::string& name, double library, double baseline, const char* unit)
{
    char lib[32];
    char base[32];
    std::snprintf(lib, sizeof lib, "%.4g %s", library, unit);
    std::snprintf(base, sizeof base, "%.4g %s", baseline, unit);
    std::printf("%-46s %16s %16s %7.2f\n", name.c_str(), lib, base, baseline != 0 ? library / baseline : 0.0);
    std::fflush(stdout);
}

// A row without a baseline of its own (a growth factor, a memory figure).
inline void note(const std::string& name, double library, double baseline, const char* unit)
{
    row(name, library, baseline, unit);
}

} // namespace BenchTable

#endif
