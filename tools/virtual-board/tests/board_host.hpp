#pragma once

// A plain libusb host for the virtual board's own tests: vendor requests as the SDK sends them,
// items by the names the board lists, and the last-error word of a refusal. Make it after the
// board and let it go before the test body ends.

#include <gtest/gtest.h>
#include <libusb.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <map>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace ovex::vboard::testing {

using Bytes = std::vector<std::uint8_t>;

// What a refused request leaves for the host when the transfer failed for another reason than a
// stall.
inline constexpr std::uint32_t kTransferFailed = 0xFFFFFFFF;

class BoardHost {
public:
    static constexpr std::uint8_t kCommands = 0x01;
    static constexpr std::uint8_t kVersions = 0x02;
    static constexpr std::uint8_t kStates = 0x03;
    static constexpr std::uint8_t kMonitors = 0x05;
    static constexpr unsigned int kTimeoutMs = 2000;

    BoardHost() {
        if (libusb_init(&m_ctx) != 0) {
            throw std::runtime_error("libusb_init failed");
        }
        m_handle = libusb_open_device_with_vid_pid(m_ctx, 0x1209, 0xAD0E);
        if (m_handle == nullptr || libusb_claim_interface(m_handle, 0) != 0) {
            Close();
            throw std::runtime_error("the board can't be opened");
        }
    }
    ~BoardHost() { Close(); }
    BoardHost(const BoardHost&) = delete;
    BoardHost& operator=(const BoardHost&) = delete;

    libusb_device_handle* Handle() { return m_handle; }

    // libusb's result: the bytes transferred, or a negative error (LIBUSB_ERROR_PIPE: a stall).
    int In(std::uint8_t request, std::uint16_t value, std::uint16_t index, Bytes& data) {
        return libusb_control_transfer(m_handle, 0xC0, request, value, index, data.data(),
                                       static_cast<std::uint16_t>(data.size()), kTimeoutMs);
    }
    int Out(std::uint8_t request, std::uint16_t value, std::uint16_t index, Bytes data = {}) {
        return libusb_control_transfer(m_handle, 0x40, request, value, index, data.data(),
                                       static_cast<std::uint16_t>(data.size()), kTimeoutMs);
    }

    // The word of the last refusal, or kTransferFailed if the board doesn't tell.
    std::uint32_t LastError() {
        Bytes word(4);
        return In(0x00, 0, 0, word) == 4 ? U32(word) : kTransferFailed;
    }

    // The 32-byte id field, cut at its first NUL.
    std::string BoardId() {
        Bytes field(32);
        if (In(0xB0, 0, 0, field) != 32) {
            return "(refused)";
        }
        return Text(field);
    }

    // Items by name, after the lists were read once (as the SDK does when it opens a board).
    std::uint32_t SetState(const std::string& name, int value) {
        return Outcome(Out(kStates, 3, Id(kStates, name), Le32(static_cast<std::uint32_t>(value))));
    }
    int State(const std::string& name) {
        Bytes value(4);
        EXPECT_EQ(In(kStates, 2, Id(kStates, name), value), 4) << name;
        return static_cast<int>(U32(value));
    }
    std::uint32_t Invoke(const std::string& name, Bytes input = {}) {
        return Outcome(Out(kCommands, 2, Id(kCommands, name), std::move(input)));
    }
    // The DC/DC rails on and the FPGA configured, as the backend's power-up leaves them: what
    // the FPGA switches can then be switched. The first refusal's word, 0 when all went.
    std::uint32_t ConfigureFpga() {
        for (const char* rail : {"DC_1V0", "DC_1V8", "DC_2V5", "DC_3V3"}) {
            if (const std::uint32_t word = SetState(rail, 1)) {
                return word;
            }
        }
        return Invoke("FPGA_CONF");
    }
    // The back end as its power-up leaves it: the FPGA configured, its data path (GPIF) and main
    // clock on. The first refusal's word, 0 when all went.
    std::uint32_t BringUpBackEnd() {
        if (const std::uint32_t word = ConfigureFpga()) {
            return word;
        }
        if (const std::uint32_t word = SetState("GPIF_EN", 1)) {
            return word;
        }
        return SetState("MAIN_CLK", 1);
    }
    // What a monitor reads; NaN if the read is refused.
    float Monitor(const std::string& name) {
        Bytes value(4);
        return In(kMonitors, 2, Id(kMonitors, name), value) == 4
                   ? std::bit_cast<float>(U32(value))
                   : std::numeric_limits<float>::quiet_NaN();
    }
    // The word a monitor read is refused with, 0 if it is read.
    std::uint32_t MonitorRefusal(const std::string& name) {
        Bytes value(4);
        return Outcome(In(kMonitors, 2, Id(kMonitors, name), value));
    }
    std::string Version(const std::string& name) {
        Bytes field(33);
        EXPECT_EQ(In(kVersions, 2, Id(kVersions, name), field), 33) << name;
        return Text(field);
    }
    std::uint32_t Count(std::uint8_t list) {
        Bytes count(4);
        return In(list, 0, 0, count) == 4 ? U32(count) : kTransferFailed;
    }

    static std::uint32_t U32(const Bytes& bytes, std::size_t at = 0) {
        return static_cast<std::uint32_t>(bytes.at(at)) |
               static_cast<std::uint32_t>(bytes.at(at + 1)) << 8 |
               static_cast<std::uint32_t>(bytes.at(at + 2)) << 16 |
               static_cast<std::uint32_t>(bytes.at(at + 3)) << 24;
    }
    static Bytes Le32(std::uint32_t value) {
        return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
    }
    static std::string Text(const Bytes& field) {
        std::string text(field.begin(), field.end());
        return text.substr(0, text.find('\0'));
    }

private:
    void Close() {
        if (m_handle != nullptr) {
            libusb_close(m_handle);
        }
        libusb_exit(m_ctx);
    }

    std::uint32_t Outcome(int transferred) {
        if (transferred >= 0) {
            return 0;
        }
        return transferred == LIBUSB_ERROR_PIPE ? LastError() : kTransferFailed;
    }

    std::uint16_t Id(std::uint8_t list, const std::string& name) {
        std::map<std::string, std::uint16_t>& ids = m_ids[list];
        if (ids.empty()) {
            const std::uint32_t count = Count(list);
            for (std::uint16_t id = 0; count != kTransferFailed && id < count; ++id) {
                Bytes field(33);
                if (In(list, 1, id, field) == 33) {
                    ids.emplace(Text(field), id);
                }
            }
        }
        const auto found = ids.find(name);
        if (found == ids.end()) {
            ADD_FAILURE() << "'" << name << "' is not listed";
            return 0xFFFF;
        }
        return found->second;
    }

    libusb_context* m_ctx = nullptr;
    libusb_device_handle* m_handle = nullptr;
    std::map<std::uint8_t, std::map<std::string, std::uint16_t>> m_ids;
};

}  // namespace ovex::vboard::testing
