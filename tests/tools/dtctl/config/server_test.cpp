// The configuration server: its files, its answers, its log, and an exchange over loopback.
#include "dtctl/config/exchange.h"
#include "dtctl/config/server.h"

#include "tools/dtctl/outcome.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

using namespace std::string_literals;
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

TEST(Settings, IniAndToml) {
    const Settings ini = dtctl::parse_ini(
        "\xEF\xBB\xBFtop=1\r\n; mtu = 1\n# mtu = 2\n\n [ net ] \r\n mtu\t=  1400 \r\n"
        "expr = a = b ; c\nbanner = \" x \"\nempty =\n[a.b]\nlast=\"");
    EXPECT_EQ(values(ini, "", {"top"}) + values(ini, "a.b", {"last"}), "1|\"|");
    EXPECT_EQ(values(ini, "net", {"mtu", "expr", "banner", "empty", "top"}),
              "1400|a = b ; c| x ||(none)|");
    const Settings toml = dtctl::parse_toml("top = 1\n[net]\nmtu = 0x10\nname = \" x \"\n"
                                            "on = true\nrate = 0.5\n'' = 7\n[net.wan]\nlow = -5");
    EXPECT_EQ(ini.size() + toml.size(), 6u + 7u);
    EXPECT_EQ(values(toml, "", {"top"}) + values(toml, "net.wan", {"low"}), "1|-5|");
    EXPECT_EQ(values(toml, "net", {"mtu", "name", "on", "rate", ""}), "16| x |true|0.5|7|");
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
    EXPECT_EQ(answer("=>config g\x1B[m  \n"), R"("g\x1b[m" "", default "\n": not set, no answer)");
    EXPECT_EQ(answer("=>config g MTU  a b ", true),
              R"( a b |"g" "MTU", default " a b ": answered " a b ", its default)");
    EXPECT_EQ(answer("=>config g long 1"), kept + R"(|"g" "long", default "1": answered ")" + kept +
                                               "\", the first 999 of 1200 bytes");
    // The longest, and what gets no answer: one byte more, a zero byte, parts missing.
    const std::string longest = "=>config net x " + std::string(999 - 15, 'd');
    EXPECT_TRUE(answer(longest, true).starts_with("dddd"));
    for (const std::string &request :
         {""s, "=>config net"s, "=>config net mtu"s, "=>CONFIG net mtu 1"s, "x=>config net mtu 1"s,
          "=>config net mtu 1\0"s, longest + "d"})
        EXPECT_TRUE(answer(request, true).starts_with("malformed, no answer: ")) << request;
}

// Too many lines are left out, and counted; so are those for which a reader that stands still would
// make the server wait. Without a reader it goes on.
TEST(ConfigLog, NeverHoldsTheServerUp) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::FILE *out = ::fdopen(ends[1], "w");
    dtctl::ConfigLog log(out);
    std::signal(SIGPIPE, SIG_IGN);
    const auto at = [](int ms) { return dtctl::Clock::time_point(std::chrono::milliseconds(ms)); };
    for (int i = 0; i < 150; ++i) log.add("a", at(2000 + i));
    log.catch_up(at(2999));
    log.say("own");
    EXPECT_EQ(log.milliseconds_left(), 0);
    log.catch_up(at(3000));
    EXPECT_EQ(log.milliseconds_left(), -1);
    for (const size_t size : {32'767, 1, 1}) log.add(std::string(size, 'b'), at(3000));
    char bytes[70'000];
    std::string all(bytes, static_cast<size_t>(::read(ends[0], bytes, sizeof(bytes))));
    for (int i = 4; i < 24; ++i) log.add(std::string(9'000, 'c'), at(1000 * i)); // 15 fit
    all.append(bytes, static_cast<size_t>(::read(ends[0], bytes, sizeof(bytes))));
    log.catch_up(at(30'000));
    all.append(bytes, static_cast<size_t>(::read(ends[0], bytes, sizeof(bytes))));
    std::istringstream lines(all);
    std::map<std::string, int> counts;
    for (std::string line; std::getline(lines, line);) ++counts[line.substr(24, 10)];
    std::string shown;
    for (const auto &[line, count] : counts) shown += std::to_string(count) + ' ' + line + '|';
    EXPECT_EQ(shown,
              "1 1 line was|1 5 lines we|1 50 lines w|100 a|1 b|1 bbbbbbbbbb|15 cccccccccc|1 own|");
    ::close(ends[0]);
    ::testing::internal::CaptureStderr();
    for (int i = 0; i < 2; ++i) log.say("a line");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "dtctl: nobody reads the log any more; the server goes on without a log\n");
    std::fclose(out);
}

// A server in a thread, its log, and a device that asks it.
TEST(ConfigServer, AnswersReloadsAndEnds) {
    const std::string path = ::testing::TempDir() + "settings.toml";
    std::ofstream(path) << "[net]\nmtu = 0x578\n"; // read as TOML, 1400
    std::string deep = "a";
    while (deep.size() < 80'000) deep += ".a";
    Texts answers;
    const Outcome outcome = outcome_of([&](std::FILE *out) {
        dtctl::ConfigServer server({path, "127.0.0.1", 0, false}, out);
        std::thread thread([&] { server.run(); });
        const dtctl::Fd device = dtctl::connect_udp(dtctl::resolve("127.0.0.1", server.port()));
        const auto ask = [&](const std::string &request, int ms) {
            char bytes[2000];
            (void)::send(device.get(), request.data(), request.size(), 0);
            dtctl::wait_for(device, POLLIN, dtctl::Clock::now() + std::chrono::milliseconds(ms));
            const ssize_t count = ::recv(device.get(), bytes, sizeof(bytes), 0);
            answers.emplace_back(bytes, count > 0 ? static_cast<size_t>(count) : 0);
        };
        ask("=>config net other 1", 100);
        ask(std::string(5000, 'x'), 100);
        for (const std::string &file : {"[net]\nmtu = 9000\n"s, deep + " = 1"}) {
            ask("=>config net mtu 1500", 60'000);
            std::ofstream(path) << file;
            ::kill(::getpid(), SIGHUP); // is taken before the request behind it
        }
        ask("=>config net mtu 1500", 60'000);
        ::kill(::getpid(), SIGTERM);
        thread.join();
    });
    std::remove(path.c_str());
    EXPECT_EQ(answers, (Texts{"", "", "1400", "9000", "9000"}));
    for (const std::string &said : {", 1 setting\n"s, "(5000 bytes)\n"s, " stopped\n"s,
                                    "the settings stay as they were: " + path + ": line 1: "})
        EXPECT_NE(outcome.output.find(said), std::string::npos) << outcome.output;
}

} // namespace
