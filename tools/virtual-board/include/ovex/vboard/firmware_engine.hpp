#pragma once

// The board's application firmware behind its vendor requests: item lists, GPIO, the I2C bus,
// the USB controller's own requests, the AXI register map and the SPI masters. It installs
// itself on a firmware model; all its state is behind one lock, so the host's requests and a
// test's calls may come from different threads.

#include <cstdint>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

class FirmwareEngine {
public:
    // Answers the vendor requests on `model`, which must not be used after the engine is gone.
    FirmwareEngine(FirmwareModel& model, ItemTables tables);
    ~FirmwareEngine();
    FirmwareEngine(const FirmwareEngine&) = delete;
    FirmwareEngine& operator=(const FirmwareEngine&) = delete;

    // For tests, by name (the first item of that name); std::out_of_range for an unknown name.
    // What the monitor measures from now on.
    void SetMonitorValue(std::string_view name, float value);
    int StateValue(std::string_view name) const;
    // The input of each invocation of the command so far, in order (empty: no input).
    std::vector<std::vector<std::uint8_t>> Invocations(std::string_view name) const;

private:
    struct Parts;

    // Back to power-on: states, pins, AXI registers and SPI masters; memories keep their data and
    // monitors keep measuring.
    ControlReply Reset(const SetupPacket& setup);

    mutable std::mutex m_mutex;
    std::unique_ptr<Parts> m_parts;
};

}  // namespace ovex::vboard
