#include "RatioReporter.hpp"

#include <algorithm>
#include <cstdio>

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        if (run.error_occurred) {
            ConsoleReporter::ReportRuns({run});
        } else if (run.aggregate_name == "median") {
            const std::string& name = run.run_name.function_name;
            const std::size_t slash = name.find('/');
            const double scale = 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
            medians_[name.substr(0, slash)].push_back(
                {name.substr(slash + 1), run.GetAdjustedCPUTime() * scale});
        }
    }
}

void RatioReporter::Finalize() {
    for (const auto& [task, contenders] : medians_) {
        std::printf("\n%s\n", task.c_str());
        const auto ours = std::ranges::find(contenders, "yvm", &Median::contender);
        for (const Median& median : contenders) {
            std::printf("  %-24s %14.0f ns", median.contender.c_str(), median.nanoseconds);
            if (ours != contenders.end() && median.contender != "yvm") {
                std::printf("   yvm is %.2f times as fast", median.nanoseconds / ours->nanoseconds);
            }
            std::printf("\n");
        }
    }
}
