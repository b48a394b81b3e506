#include "bench/report.h"

#include "bench/bench.h"
#include "bench/rows.h"

#include <algorithm>
#include <set>

namespace {

std::string format(const char *pattern, double a, double b = 0) {
    char text[100];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(text, sizeof text, pattern, a, b);
#pragma GCC diagnostic pop
    return text;
}

} // namespace

void bench::Report::ReportRuns(const std::vector<Run> &runs) {
    for (const Run &run : runs) {
        if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
        const std::string name = run.run_name.function_name;
        const bool by_hand = run.run_name.time_type == "manual_time";
        const double time = by_hand ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
        times_[name].push_back(time / static_cast<double>(operations_[name]));
    }
}

double bench::Report::median(const std::string &work, const std::string &who) const {
    const auto found = times_.find(work + "/" + who);
    if (found == times_.end()) return 0;
    std::vector<double> times = found->second;
    const auto middle = times.begin() + static_cast<ptrdiff_t>(times.size() / 2);
    std::nth_element(times.begin(), middle, times.end());
    return *middle;
}

std::string bench::Report::ratio(const std::string &work, const std::string &who, double most) {
    const double theirs = median(work, who);
    if (theirs == 0) {
        ++absent_;
        return "not there";
    }
    const double times = median(work, libdt) / theirs;
    if (most == 0) return format("%.2f", times);
    const bool met = times <= most;
    ++(met ? met_ : missed_);
    return format(met ? "%.2f (max %.2f)" : "**%.2f** (max %.2f)", times, most);
}

void bench::Report::print_row(const std::string &work) {
    if (median(work, libdt) == 0) return;
    std::string to_limit = "", to_peers;
    for (const Target *target = targets_begin; target != targets_end; ++target) {
        if (target->work != work) continue;
        const std::string times = ratio(work, target->who, target->most);
        if (target->who == std::string(limit))
            to_limit = times;
        else
            to_peers += (to_peers.empty() ? "" : ", ") + std::string(target->who) + " " + times;
    }
    fprintf(out_, "| %-32s | %11s | %-19s | %s |\n", work.c_str(),
            format("%.1f", median(work, libdt)).c_str(), to_limit.c_str(), to_peers.c_str());
}

void bench::Report::print_counts() const {
    fprintf(out_, "\n%d targets met, %d **missed**", met_, missed_);
    if (absent_ != 0) fprintf(out_, ", %d not measured: those peers are not installed", absent_);
    fprintf(
        out_,
        ".\n\nThe limit is the least work there is. For stores, logs and frames it copies bytes to "
        "places known\nbeforehand, which no library can: there it has no target.\n");
}

void bench::Report::print_plain() const {
    for (const auto &[name, times] : times_) {
        const size_t slash = name.rfind('/');
        const std::string work = name.substr(0, slash), who = name.substr(slash + 1);
        fprintf(out_, "%s\t%s\t%.3f\n", work.c_str(), who.c_str(), median(work, who));
    }
}

void bench::Report::print_table() {
    fprintf(out_, "| %-32s | %11s | %-19s | %s |\n", "work", "libdt, ns", "to the limit",
            "to peers");
    fprintf(out_, "|---|--:|---|---|\n");
    std::set<std::string> printed;
    for (const Target *target = targets_begin; target != targets_end; ++target)
        if (printed.insert(target->work).second) print_row(target->work);
    print_counts();
}

void bench::Report::Finalize() {
    if (plain_)
        print_plain();
    else
        print_table();
}
