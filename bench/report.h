// Collects what a run measures and prints it as a table, a row for each kind of work; or plain, a
// line for each contender: work, name and nanoseconds, with tabs between.
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
    Report(FILE *out, std::map<std::string, size_t> operations, bool plain)
        : out_(out), operations_(std::move(operations)), plain_(plain) {}

    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override;
    void Finalize() override;

private:
    double median(const std::string &work, const std::string &who) const;
    std::string ratio(const std::string &work, const std::string &who, double most);
    void print_row(const std::string &work);
    void print_counts() const;
    void print_plain() const;
    void print_table();

    FILE *out_;
    std::map<std::string, size_t> operations_;
    bool plain_;
    std::map<std::string, std::vector<double>> times_; // of an operation, in ns
    int met_ = 0, missed_ = 0, absent_ = 0;
};

} // namespace bench
