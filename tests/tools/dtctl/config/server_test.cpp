// The configuration server: its files, its answers, and an exchange over loopback.
#include "dtctl/config/exchange.h"
#include "dtctl/config/server.h"

#include "tools/dtctl/outcome.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <fstream>
#include <thread>
#include <vector>

using namespace std::string_literals;
using dtctl::Fd;
using dtctl::Settings;

namespace {

using Texts = std::vector<std::string>;

// The values of a group's keys.
std::string values(const Settings &settings, const std::string &group, const Texts &keys) {
    std::string result;
    for (const std::string &key : keys) {
        const std::string *value = settings.find(group, key);
        result += (value ? *value : "(none)") + '|';
    }
    return result;
}

TEST(Settings, Ini) {
    const Settings settings = dtctl::parse_ini(
        "\xEF\xBB\xBFtop=1\r\n; mtu = 1\n# mtu = 2\n\n [ net ] \r\n mtu\t=  1400 \r\n"
        "expr = a = b ; c\nbanner = \" x \"\nempty =\n[a.b]\nlast=\"");
    EXPECT_EQ(settings.size(), 6u);
    EXPECT_EQ(values(settings, "", {"top"}) + values(settings, "a.b", {"last"}), "1|\"|");
    EXPECT_EQ(values(settings, "net", {"mtu", "expr", "banner", "empty", "top"}),
              "1400|a = b ; c| x ||(none)|");
}

TEST(Settings, Toml) {
    const Settings settings =
        dtctl::parse_toml("top = 1\n[net]\nmtu = 0x10\nname = \" x \"\non = true\n"
                          "rate = 0.5\n[net.wan]\nlow = -5\n");
    EXPECT_EQ(settings.size(), 6u);
    EXPECT_EQ(values(settings, "", {"top"}) + values(settings, "net.wan", {"low"}), "1|-5|");
    EXPECT_EQ(values(settings, "net", {"mtu", "name", "on", "rate"}), "16| x |true|0.5|");
}

TEST(Settings, WhatCannotBeAskedForOrReadIsNamedWithItsLine) {
    const auto expect_refusal = [](auto parse, const Texts &texts) {
        for (const std::string &text : texts) {
            const Outcome outcome = outcome_of([&](std::FILE *) { parse(text); });
            EXPECT_EQ(outcome.code, dtctl::Exit::broken) << text;
            EXPECT_EQ(outcome.error.substr(0, 7), "line 2:") << text;
        }
    };
    expect_refusal(dtctl::parse_ini, {"a = 1\n[b", "a = 1\nb", "a = 1\n= 2", "a = 1\na = 2",
                                      "a = 1\nb c = 2", "[b c]\na = 2", "a = 1\nb = \0"s});
    expect_refusal(dtctl::parse_toml,
                   {"a = 1\nb = ", "a = 1\nb = [1]", "a.b.c = 2\n\"a.b\".c = 1"});
}

// The datagram, if there is one, and the log.
std::string answer(const std::string &request, bool echo = false) {
    const Settings settings =
        dtctl::parse_ini("top = 0\n[g]\nmtu = 1400\nnone =\nlong = " + std::string(1200, 'x'));
    const auto answer = dtctl::answer_config(request, request.size(), settings, echo);
    return (answer.datagram ? *answer.datagram + '|' : "") + answer.log;
}

TEST(ConfigExchange, Answers) {
    const std::string kept(999, 'x');
    EXPECT_EQ(answer("=>config g mtu ", true), R"(1400|"g" "mtu", default "": answered "1400")");
    EXPECT_EQ(answer("=>config  top a b"), R"(0|"" "top", default "a b": answered "0")");
    EXPECT_EQ(answer("=>config g none x"),
              R"(|"g" "none", default "x": answered "", which a device takes for no answer)");
    EXPECT_EQ(answer("=>config g\x1B[m a \n"),
              R"("g\x1b[m" "a", default "\n": not set, no answer)");
    EXPECT_EQ(answer("=>config g MTU  a b ", true),
              R"( a b |"g" "MTU", default " a b ": answered " a b ", its default)");
    EXPECT_EQ(answer("=>config g long 1"), kept + R"(|"g" "long", default "1": answered ")" + kept +
                                               "\", the first 999 of 1200 bytes");
}

TEST(ConfigExchange, MalformedRequestsGetNoAnswer) {
    const std::string longest = "=>config net x " + std::string(999 - 15, 'd');
    for (const std::string &request :
         {""s, "=>config net"s, "=>config net mtu"s, "=>config net  1"s, "=>CONFIG net mtu 1"s,
          "x=>config net mtu 1"s, "=>config net mtu 1\0"s, longest + "d"})
        EXPECT_TRUE(answer(request, true).starts_with("malformed, no answer: ")) << request;
    EXPECT_TRUE(answer(longest, true).starts_with("dddd"));
}

// A server in a thread, its log, and a device that asks it.
TEST(ConfigServer, AnswersReloadsAndEnds) {
    const std::string path = ::testing::TempDir() + "settings.toml";
    std::ofstream(path) << "[net]\nmtu = 0x578\n"; // read as TOML, 1400
    Texts answers;
    const Outcome outcome = outcome_of([&](std::FILE *out) {
        dtctl::Output log(out);
        dtctl::ConfigServer server({path, "127.0.0.1", 0, false}, log);
        std::thread thread([&] { server.run(); });
        const Fd device = dtctl::connect_udp(dtctl::resolve("127.0.0.1", server.port()));
        const auto ask = [&](const std::string &request, int milliseconds) {
            char bytes[2000];
            (void)::send(device.get(), request.data(), request.size(), 0);
            const auto until = dtctl::Clock::now() + std::chrono::milliseconds(milliseconds);
            dtctl::wait_for(device, POLLIN, until);
            const ssize_t count = ::recv(device.get(), bytes, sizeof(bytes), 0);
            answers.emplace_back(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        };
        ask("=>config net other 1", 100);
        ask(std::string(5000, 'x'), 100);
        for (const char *file : {"[net]\nmtu = 9000\n", "[net\nmtu = 1\n"}) {
            ask("=>config net mtu 1500", 60000);
            std::ofstream(path) << file;
            ::kill(::getpid(), SIGHUP); // is taken before the request behind it
        }
        ask("=>config net mtu 1500", 60000);
        ::kill(::getpid(), SIGTERM);
        thread.join();
    });
    std::remove(path.c_str());
    EXPECT_EQ(answers, (Texts{"", "", "1400", "9000", "9000"}));
    EXPECT_NE(outcome.output.find("the settings stay as they were: " + path + ": line 1: "),
              std::string::npos);
    EXPECT_NE(outcome.output.find("(5000 bytes)"), std::string::npos);
    EXPECT_TRUE(outcome.output.ends_with(" stopped\n"));
}

} // namespace
