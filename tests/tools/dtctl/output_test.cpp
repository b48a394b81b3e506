// Where the output goes, and whether it has colours.
#include "dtctl/output.h"
#include "dtctl/printer.h"

#include "outcome.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

// What a printer writes on a terminal.
std::string shown_on_terminal() {
    const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(::grantpt(master) | ::unlockpt(master), 0);
    std::FILE *terminal = std::fopen(::ptsname(master), "w");
    const auto printer = dtctl::make_printer(dtctl::Format::table, terminal);
    printer->on_opening({1, {0xA1, 0x02}});
    printer->flush();
    std::string text; // comes line by line
    char bytes[1000];
    while (text.find("value") == text.npos) {
        const ssize_t size = ::read(master, bytes, sizeof(bytes));
        if (size <= 0) break;
        text.append(bytes, static_cast<size_t>(size));
    }
    std::fclose(terminal);
    ::close(master);
    return text;
}

TEST(Output, ColoursOnATerminalOnlyAndNotWithNoColor) {
    ::unsetenv("NO_COLOR");
    ::setenv("TERM", "xterm", 1);
    EXPECT_NE(shown_on_terminal().find("\033[1mcollector"), std::string::npos);
    ::setenv("NO_COLOR", "1", 1);
    const std::string plain = shown_on_terminal();
    EXPECT_NE(plain.find("collector"), std::string::npos);
    EXPECT_EQ(plain.find('\033'), std::string::npos);
    ::unsetenv("NO_COLOR");
    ::setenv("TERM", "dumb", 1);
    EXPECT_EQ(shown_on_terminal().find('\033'), std::string::npos);
}

TEST(Output, AFileIsWrittenAnewOrTheReasonTold) {
    const std::string path = ::testing::TempDir() + "output";
    for (const char *text : {"long text", "text"}) {
        const dtctl::Stream out = dtctl::open_output(path);
        dtctl::Output(out.get()).put(text);
    }
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "text");
    const Outcome outcome = outcome_of([&](std::FILE *) { dtctl::open_output(path + "/none"); });
    EXPECT_EQ(outcome.code, dtctl::Exit::failed);
    EXPECT_EQ(outcome.error, "cannot write " + path + "/none: Not a directory");
    std::remove(path.c_str());
}

TEST(Output, WhatIsToBeReadStaysAsItIsAndSoDoesAResultWithoutIt) {
    const std::string path = ::testing::TempDir() + "input";
    const std::string link = path + "_too";
    std::ofstream(path) << "text";
    ASSERT_EQ(::symlink(path.c_str(), link.c_str()), 0);
    const Outcome outcome = outcome_of([&](std::FILE *) { dtctl::open_output(link, path); });
    EXPECT_EQ(outcome.code, dtctl::Exit::failed);
    EXPECT_EQ(outcome.error, "cannot write " + link + ": it is the file to be read");
    ASSERT_TRUE(std::freopen(path.c_str(), "r", stdin));
    EXPECT_EQ(outcome_of([&](std::FILE *) { dtctl::open_output(path, "-"); }).code,
              dtctl::Exit::failed);
    EXPECT_EQ(outcome_of([&](std::FILE *) { dtctl::open_output(path, path + "_none"); }).error,
              "cannot read " + path + "_none: No such file or directory");
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "text");
    std::remove(link.c_str());
    std::remove(path.c_str());
}

} // namespace
