// The configuration server: its files, its answers, and an exchange over loopback.
#include "dtctl/config_exchange.h"
#include "dtctl/config_server.h"
#include "dtctl/failure.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

using namespace std::string_literals;
using dtctl::Fd;
using dtctl::Settings;

namespace {

std::string value_of(const Settings &settings, const std::string &group, const std::string &key) {
    const std::string *value = settings.find(group, key);
    return value ? *value : "(none)";
}

// The complaint about a file, in either format.
template <typename Parse> std::string complaint(Parse parse, const std::string &text) {
    try {
        parse(text);
    } catch (const dtctl::Failure &failure) {
        EXPECT_EQ(failure.code(), dtctl::Exit::broken);
        return failure.what();
    }
    return "";
}

TEST(Settings, Ini) {
    const Settings settings = dtctl::parse_ini("\xEF\xBB\xBFtop=1\r\n; mtu = 1\n# mtu = 2\n\n"
                                               " [ net ] \r\n mtu\t=  1400 \r\nexpr = a = b ; c\n"
                                               "banner = \" x \"\nempty =\n[a.b]\nlast=\"");
    EXPECT_EQ(settings.size(), 6u);
    EXPECT_EQ(value_of(settings, "", "top"), "1");
    EXPECT_EQ(value_of(settings, "net", "mtu"), "1400");
    EXPECT_EQ(value_of(settings, "net", "expr"), "a = b ; c");
    EXPECT_EQ(value_of(settings, "net", "banner"), " x ");
    EXPECT_EQ(value_of(settings, "net", "empty"), "");
    EXPECT_EQ(value_of(settings, "a.b", "last"), "\"");
    EXPECT_EQ(value_of(settings, "net", "top"), "(none)");
}

TEST(Settings, Toml) {
    const Settings settings =
        dtctl::parse_toml("top = 1\n[net]\nmtu = 0x10\nname = \" x \"\non = true\n"
                          "rate = 0.5\n[net.wan]\nlow = -5\n");
    EXPECT_EQ(settings.size(), 6u);
    EXPECT_EQ(value_of(settings, "", "top"), "1");
    EXPECT_EQ(value_of(settings, "net", "mtu"), "16");
    EXPECT_EQ(value_of(settings, "net", "name"), " x ");
    EXPECT_EQ(value_of(settings, "net", "on"), "true");
    EXPECT_EQ(value_of(settings, "net", "rate"), "0.5");
    EXPECT_EQ(value_of(settings, "net.wan", "low"), "-5");
}

TEST(Settings, WhatCannotBeAskedForOrReadIsNamedWithItsLine) {
    const auto line = [](auto parse, const std::string &text) {
        return complaint(parse, text).substr(0, 7);
    };
    for (const std::string &text : {"a = 1\n[b"s, "a = 1\nb"s, "a = 1\n= 2"s, "a = 1\na = 2"s,
                                    "a = 1\nb c = 2"s, "[b c]\na = 2"s, "a = 1\nb = \0"s}) {
        EXPECT_EQ(line(dtctl::parse_ini, text), "line 2:") << text;
    }
    for (const std::string text :
         {"a = 1\nb = ", "a = 1\nb = [1]", "a = 1\nb = 2026-01-02", "a = 1\n\"b c\" = 1",
          "a = 1\nb = \"\\u0000\"", "a.b.c = 2\n\"a.b\".c = 1"}) {
        EXPECT_EQ(line(dtctl::parse_toml, text), "line 2:") << text;
    }
}

// The answer, quoted, or "-" for none.
std::string answer(const std::string &request, bool echo = false) {
    const Settings settings =
        dtctl::parse_ini("top = 0\n[net]\nmtu = 1400\nnone =\nlong = " + std::string(1200, 'x'));
    const auto result = dtctl::answer_config(request, request.size(), settings, echo);
    EXPECT_FALSE(result.log.empty());
    return result.datagram ? '"' + *result.datagram + '"' : "-";
}

TEST(ConfigExchange, Answers) {
    EXPECT_EQ(answer("=>config net mtu 1500"), "\"1400\"");
    EXPECT_EQ(answer("=>config net mtu ", true), "\"1400\"");
    EXPECT_EQ(answer("=>config  top a b"), "\"0\"");
    EXPECT_EQ(answer("=>config net none x"), "\"\"");
    EXPECT_EQ(answer("=>config net MTU  a b "), "-");
    EXPECT_EQ(answer("=>config net MTU  a b ", true), "\" a b \"");
    EXPECT_EQ(answer("=>config net MTU ", true), "\"\"");
    EXPECT_EQ(answer("=>config net long 1"), '"' + std::string(999, 'x') + '"');
}

TEST(ConfigExchange, MalformedRequestsGetNoAnswer) {
    for (const std::string &request :
         {""s, "=>config"s, "=>config "s, "=>config net"s, "=>config net mtu"s, "=>config net  1"s,
          "=>CONFIG net mtu 1"s, "x=>config net mtu 1"s, "=>config net mtu 1\0"s}) {
        EXPECT_EQ(answer(request, true), "-") << request;
    }
    const std::string longest = "=>config net x " + std::string(999 - 15, 'd');
    EXPECT_NE(answer(longest, true), "-");
    EXPECT_EQ(answer(longest + "d", true), "-");
}

TEST(ConfigExchange, TheLogTellsRequestAndAnswer) {
    const Settings settings = dtctl::parse_ini("a = 1\nn =\nx = " + std::string(1000, 'x'));
    const auto log = [&](const std::string &request, bool echo) {
        return dtctl::answer_config(request, request.size(), settings, echo).log;
    };
    EXPECT_EQ(log("=>config  a 2 3", false), R"("" "a", default "2 3": answered "1")");
    EXPECT_EQ(log("=>config g\x1B[m a \n", false),
              R"("g\x1b[m" "a", default "\n": not set, no answer)");
    EXPECT_EQ(log("=>config  n 1", false),
              R"("" "n", default "1": answered "", which a device takes for no answer)");
    EXPECT_EQ(log("=>config  b 1", true), R"("" "b", default "1": answered "1", its default)");
    EXPECT_NE(log("=>config  x 1", false).find("the first 999 of 1000 bytes"), std::string::npos);
    EXPECT_EQ(log("\x07\xFF", false),
              R"(malformed, no answer: no configuration request: "\x07\xff" (2 bytes))");
}

// A server in a thread, its log, and a device that asks it.
TEST(ConfigServer, AnswersReloadsAndEnds) {
    const std::string path = ::testing::TempDir() + "settings.toml";
    std::ofstream(path) << "[net]\nmtu = 0x578\n"; // read as TOML, 1400
    char *text = nullptr;
    size_t size = 0;
    std::FILE *out = open_memstream(&text, &size);
    dtctl::Output log(out);
    dtctl::ConfigServer server({path, "127.0.0.1", 0, false}, log);
    std::thread thread([&] { server.run(); });

    const Fd device = dtctl::connect_udp(dtctl::resolve("127.0.0.1", server.port()));
    const auto ask = [&](const std::string &request, int milliseconds = 5000) -> std::string {
        char bytes[2000];
        (void)::send(device.get(), request.data(), request.size(), 0);
        const auto until = dtctl::Clock::now() + std::chrono::milliseconds(milliseconds);
        if (!dtctl::wait_for(device, POLLIN, until)) return "(none)";
        return {bytes, static_cast<size_t>(::recv(device.get(), bytes, sizeof(bytes), 0))};
    };
    // A signal is taken before the request behind it.
    const auto ask_after_reload = [&](const std::string &file) {
        std::ofstream(path) << file;
        ::kill(::getpid(), SIGHUP);
        return ask("=>config net mtu 1500");
    };
    EXPECT_EQ(ask("=>config net mtu 1500"), "1400");
    EXPECT_EQ(ask("=>config net other 1", 100), "(none)");
    EXPECT_EQ(ask(std::string(5000, 'x'), 100), "(none)");
    EXPECT_EQ(ask_after_reload("[net]\nmtu = 9000\n"), "9000");
    EXPECT_EQ(ask_after_reload("[net\nmtu = 1\n"), "9000");
    ::kill(::getpid(), SIGTERM);
    thread.join();
    std::fclose(out);
    const std::string lines(text, size);
    std::free(text);
    std::remove(path.c_str());
    EXPECT_NE(lines.find("the settings stay as they were: " + path + ": line 1: "),
              std::string::npos)
        << lines;
    EXPECT_NE(lines.find("(5000 bytes)"), std::string::npos);
    EXPECT_TRUE(lines.ends_with(" stopped\n"));
}

TEST(ConfigServer, WhatCannotBeReadOrListenedOn) {
    const std::string path = ::testing::TempDir() + "listen.ini";
    std::ofstream(path) << "a = 1\n";
    dtctl::Output log(stdout);
    const Fd taken = dtctl::bind_udp("127.0.0.1", 0);
    const auto code = [&](const std::string &file, uint16_t port) {
        try {
            dtctl::ConfigServer({file, "127.0.0.1", port, false}, log);
        } catch (const dtctl::Failure &failure) {
            return failure.code();
        }
        return dtctl::Exit::success;
    };
    EXPECT_EQ(code(path, 0), dtctl::Exit::success);
    EXPECT_EQ(code(path, dtctl::local_port(taken)), dtctl::Exit::unreachable);
    EXPECT_EQ(code(path + ".none", 0), dtctl::Exit::failed);
    EXPECT_EQ(code("/dev/zero", 0), dtctl::Exit::failed);
    std::remove(path.c_str());
}

} // namespace
