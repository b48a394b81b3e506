// A pump controller that keeps its diagnostics with libdt.
//
// The library belongs to one thread at a time. Here it is the main thread's until the device is set
// up and from then on the command thread's, which runs Collect_Init and with it every collector.
// The timer thread runs DTTimer_Loop, which shares nothing with the rest of the library, and its
// timers touch no other part of it: measurements go into atomics, events wait in a queue for the
// command thread.
//
// It believes its servers alone: those whose addresses it is given, or else this machine.
#include <dt/dt.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

// Whose memory DTMem_Show speaks of.
constexpr uint32_t history_memory = 1;

// Numbers of the values as the collection server knows them.
enum Key : uint32_t {
    key_speed = 1,
    key_pressure,
    key_litres,
    key_energy,
    key_calibration,
    key_name = 10,
    key_history,
    key_init_log,
    key_run_log,
    key_result
};

// What the server's command asks for.
constexpr uint32_t command_service = 2; // everything, and a report on the debug console

struct Motor {
    std::atomic<uint32_t> speed{0};    // 1/min
    std::atomic<uint32_t> pressure{0}; // mbar
};

Motor motors[2];

char device_name[1000];
int32_t speed_limit;
int32_t pressure_limit;

// Two numbers that belong together, and wider than the device's atomics.
class Meter {
public:
    struct Reading {
        uint64_t litres;
        uint64_t energy; // mWh
    };

    void count(uint64_t litres, uint64_t energy) {
        const std::lock_guard<std::mutex> lock(mutex_);
        reading_.litres += litres;
        reading_.energy += energy;
    }

    Reading read() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return reading_;
    }

private:
    std::mutex mutex_;
    Reading reading_ = {4294967290, 0}; // soon more than 32 bits hold
};

Meter flow;

struct Event {
    DTFault *fault;
    uint32_t level;
    std::string text;
};

// Until the next run takes them, which nobody may ever ask for: only so many are kept.
class Events {
public:
    void add(Event event) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (waiting_.size() < most)
            waiting_.push_back(std::move(event));
        else
            ++lost_;
    }

    std::vector<Event> take(uint32_t *lost) {
        const std::lock_guard<std::mutex> lock(mutex_);
        *lost = std::exchange(lost_, 0);
        return std::exchange(waiting_, {});
    }

private:
    static constexpr std::size_t most = 100;

    std::mutex mutex_;
    std::vector<Event> waiting_;
    uint32_t lost_ = 0;
};

Events events;
DTFault *pump_fault, *sensor_fault, *valve_fault;
CollectItem *pump, *meter, *report, *logs;

// ---- the timer thread: simulated sensors
// ---------------------------------------------------------

int32_t measure_motors(DTTimer *timer) {
    const uint32_t wave = static_cast<uint32_t>(timer->times % 20);
    for (uint32_t i = 0; i < 2; ++i) {
        motors[i].speed = 2700 + 20 * wave + 100 * i;
        motors[i].pressure = 1800 + 10 * wave - 50 * i;
    }
    flow.count(3, 250);
    return 1;
}

int32_t watch_limits(DTTimer *) {
    static bool was_fast;
    const uint32_t speed = motors[1].speed;
    const bool is_fast = speed > static_cast<uint32_t>(speed_limit);
    if (is_fast && !was_fast)
        events.add({pump_fault, 2, "motor 2 turns at " + std::to_string(speed) + "/min"});
    was_fast = is_fast;
    return 1;
}

int32_t open_valve_once(DTTimer *) {
    events.add({valve_fault, 1, "opened"});
    return 0; // and never again
}

// ---- the command thread
// --------------------------------------------------------------------------

void log_events() {
    uint32_t lost;
    for (const Event &event : events.take(&lost)) {
        DTFault_SetRunLog(event.fault, event.level, 0, event.text.c_str());
        DTFault_SetCounter(event.fault, key_result, event.level);
    }
    if (lost == 0) return;
    DTFault_SetRunLog(pump_fault, 2, 0, DTString_SFormat("%u more events were lost", lost));
}

void show_table() {
    DTTable *table = DTTable_New();
    DTTable_SetCaption(table, "Motors");
    DTTable_SetTitle(table, 0, "motor", DTTABLE_TEXT, "%s", 'L');
    DTTable_SetTitle(table, 1, "1/min", DTTABLE_INT32, "%d", 'R');
    DTTable_SetTitle(table, 2, "bar", DTTABLE_DOUBLE, "%.3f", 'R');
    for (int32_t row = 0; row < 2; ++row) {
        const int32_t speed = static_cast<int32_t>(motors[row].speed);
        const double bar = motors[row].pressure / 1000.0;
        DTTable_Set(table, row, 0, row == 0 ? "main" : "reserve");
        DTTable_Set(table, row, 1, &speed);
        DTTable_Set(table, row, 2, &bar);
    }
    DTTable_Show(table);
    DTTable_Release(table);
}

// The table, the fault log file and the memory accounts: for the engineer at the debug console.
void show_service_report() {
    show_table();
    DTFault_Start();
    DTMem_Show();
}

void collect_pump(uint32_t) {
    log_events();
    for (uint32_t i = 0; i < 2; ++i) {
        Collect_BeginSection(pump, i + 1);
        Collect_PutInt(pump, key_speed, motors[i].speed);
        Collect_PutInt(pump, key_pressure, motors[i].pressure);
        Collect_EndSection(pump);
    }
}

void collect_meter(uint32_t) {
    const Meter::Reading reading = flow.read();
    Collect_PutLong(meter, key_litres, reading.litres);
    Collect_PutLong(meter, key_energy, reading.energy);
    uint8_t calibration[13]; // as the sensor keeps it: version, time, offset, serial number
    DTBuffer_PackN(calibration, sizeof calibration, "BTH6s", 2, 1416163483u, -17, "SN4711");
    Collect_PutStruct(meter, key_calibration, calibration, sizeof calibration);
}

// Some thousand characters: they travel in pieces and arrive whole.
void collect_report(uint32_t) {
    Collect_PutString(report, key_name, device_name, 0);
    char *history = static_cast<char *>(DTMem_Malloc(history_memory, 6000));
    if (!history) return;
    char *end = history;
    for (int minute = 0; minute < 120; ++minute) {
        DTString_FormatN(end, 40, "minute %3d: %4d/min, %4d mbar\n", minute,
                         2700 + 20 * (minute % 20), 1800 + 10 * (minute % 20));
        while (*end) ++end;
    }
    Collect_PutString(report, key_history, history, 0);
    DTMem_Free(history_memory, history);
}

void collect_logs(uint32_t command) {
    Collect_PutInitLog(logs, key_init_log, pump_fault);
    Collect_PutRunLog(logs, key_run_log, pump_fault);
    Collect_PutRunLog(logs, key_run_log, valve_fault);
    if (command == command_service) show_service_report();
}

void test_pump(uint32_t) {
    const bool turns = motors[0].speed != 0;
    Collect_PutInt(pump, key_result, turns ? 0 : 1);
    Collect_PutString(pump, key_result, turns ? "turns" : "stands still", 0);
}

void test_meter(uint32_t) {
    Collect_PutInt(meter, key_result, 0);
    Collect_PutString(meter, key_result, "in range", 0);
}

// A fault's start callback: fresh values for the fault log file.
void measure_for_the_fault_log() {
    DTFault_SetRegist(sensor_fault, key_pressure, motors[0].pressure);
    DTFault_SetRegist64(sensor_fault, key_litres, flow.read().litres);
    const int16_t raw[] = {12, -3, 40};
    DTFault_SetValue(sensor_fault, key_calibration, raw, sizeof raw);
}

// ---- setting up
// ----------------------------------------------------------------------------------

// Whom to believe and for how long to wait: what a device should not go without on a network that
// it shares with others.
bool set_limits(const std::vector<const char *> &servers) {
    for (const char *server : servers)
        if (!CollectClient_Allow(server)) return false;
    CollectClient_SetTimeout(5000, 5000, 10000); // connect, send, acknowledgement
    CollectClient_SetMaxAge(30000);              // commands that waited behind a long run
    return DTConfig_SetServer(servers[0], 8999) != 0;
}

// A null group is never asked for: the defaults hold.
void fetch_settings(bool offline) {
    const char *device = offline ? nullptr : "device";
    const char *limits = offline ? nullptr : "pump";
    DTConfig_GetString(device, "name", "pump controller", device_name);
    speed_limit = DTConfig_GetInt(limits, "speed_limit", 3000);
    pressure_limit = DTConfig_GetInt(limits, "pressure_limit", 2500);
    DTPrint_Puts(
        DTString_SFormat("%s: at most %d/min, %d mbar", device_name, speed_limit, pressure_limit),
        0);
}

void register_faults() {
    pump_fault = DTFault_Regist("pump", nullptr);
    sensor_fault = DTFault_Regist("sensors", measure_for_the_fault_log);
    valve_fault = DTFault_Regist("valve", nullptr);
    DTFault_SetInitLog(pump_fault, 1, 0, "two motors found");
    DTFault_SetInitLog(sensor_fault, 1, 0, "calibration read");
}

void register_collectors() {
    pump = Collect_New("pump", collect_pump, test_pump);
    meter = Collect_New("meter", collect_meter, test_meter);
    report = Collect_New("report", collect_report, nullptr);
    logs = Collect_New("logs", collect_logs, nullptr);
}

void register_timers() {
    DTTimer_Regist(measure_motors, 100);
    DTTimer_Regist(watch_limits, 200);
    DTTimer_Regist(open_valve_once, 300);
}

} // namespace

// device [--offline] [SERVER...]: the first one has the settings, all may send commands.
int main(int argc, char **argv) {
    DTInfo_SetTrace(0); // standard output is this device's debug console
    CollectClient_SetTrace(0);
    std::vector<const char *> servers(argv + 1, argv + argc);
    const bool offline = !servers.empty() && std::strcmp(servers[0], "--offline") == 0;
    if (offline) servers.erase(servers.begin());
    if (servers.empty()) servers.push_back("127.0.0.1");
    if (!set_limits(servers)) {
        DTPrint_Puts("an address has four numbers: 192.0.2.1", 0);
        return 2;
    }
    fetch_settings(offline);
    g_fcm_logger = DTLogger_New(255);
    DTLogger_Write(g_fcm_logger, 0, "device starts\n");
    register_faults();
    register_collectors();
    register_timers();
    std::thread(DTTimer_Loop).detach();
    Collect_Init(0x0107); // the main thread becomes the command thread, for good
    DTPrint_Puts(DTString_SFormat("no command port: %s", std::strerror(errno)), 0);
    return 1;
}
