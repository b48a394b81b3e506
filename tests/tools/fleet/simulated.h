// An engine and simulated devices in one loop.
#pragma once

#include "fleet/engine/engine.h"
#include "fleet/simulate/simulator.h"

#include <arpa/inet.h>

#include <map>
#include <optional>

namespace dtfleet {

class Kept : public Outlet {
public:
    bool has_room() const override { return true; }
    void put(RunRecord run) override { runs[run.device].push_back(std::move(run)); }
    std::map<std::string, std::vector<RunRecord>> runs;
};

struct Fleet {
    explicit Fleet(SimulatorOptions options, Engine::Fleet whose = Engine::Fleet::own)
        : simulator(options, loop), fleet(whose) {
        inventory.listen = 0; // any free port
        for (uint32_t i = 0; i < options.devices; ++i) {
            Device device;
            device.name = std::to_string(i);
            device.address = Simulator::address_of(i);
            inet_pton(AF_INET, device.address.c_str(), &device.ip);
            device.port = simulator.port();
            device.interval = Seconds(1);
            inventory.devices.push_back(device);
        }
    }

    Engine &start() {
        return engine.emplace(std::make_shared<Inventory>(inventory), loop, kept, fleet);
    }

    template <typename Done> void run_until(Done done) {
        if (!engine) start();
        while (!done()) {
            loop.wait(
                std::min({engine->next_pass(), simulator.next_pass(), now() + Time(50'000'000)}));
            simulator.pass();
            engine->pass();
        }
    }

    Loop loop;
    Simulator simulator;
    Engine::Fleet fleet;
    Inventory inventory;
    Kept kept;
    std::optional<Engine> engine;
};

} // namespace dtfleet
