// Collects what a run measures and prints it as a table: a row for each kind of work.
#pragma once

#include <benchmark/benchmark.h>
#include <map>
#include <stdio.h>
#include <string>
#include <vector>

namespace bench {

class Report : public benchmark::BenchmarkReporter {
public:
    // operations: how many one iteration counts for, by the benchmark's name.
    Report(FILE *out, std::map<std::string, size_t> operations)
        : out_(out), operations_(std::move(operations)) {}

    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    double median(const std::string &work, const std::string &who) const;
    std::string ratio(const std::string &work, const std::string &who, double most);
    void print_row(const std::string &work);
    void print_counts() const;

    FILE *out_;
    std::map<std::string, size_t> operations_;
    std::map<std::string, std::vector<double>> times_; // of an operation, in ns
    int met_ = 0, missed_ = 0, absent_ = 0;
};

} // namespace bench
