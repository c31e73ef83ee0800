#pragma once

// An S25FL128S serial NOR flash that the host drives itself, instruction by instruction, through
// the board's SPI requests (bus 1, slave 0). Its layout comes from the chip's CFI answer.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "modules/flash_ctrl.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::sdk {

class FlashS25FL128S final : public IFlashControl {
public:
    // One SPI message: the instruction, its address, its data and the pad bytes during which the
    // chip answers. Throws std::runtime_error when appended to after Finalize or past the 512
    // bytes that one SPI transfer carries.
    class CommandBuilder {
    public:
        static constexpr std::size_t kMaxSize = 512;

        CommandBuilder& Instruction(std::uint8_t code);
        CommandBuilder& Address(std::uint32_t address);  // big-endian
        CommandBuilder& Bytes(std::span<const std::uint8_t> bytes);
        CommandBuilder& Pad(std::size_t count);
        std::vector<std::uint8_t> Finalize();

    private:
        void Reserve(std::size_t count);

        bool m_finalized = false;
        std::vector<std::uint8_t> m_data;
        std::size_t m_size = 0;
    };

    // Resets, initialises and starts the SPI bus; throws std::runtime_error when the board
    // refuses.
    FlashS25FL128S(std::shared_ptr<usb::device::UsbDevice> device, std::string id);

    const char* GetName() const override { return "S25FL128S flash memory"; }
    // Read once from the chip and kept, with the chip's configuration.
    std::error_code GetInfo(FlashInfo& info) override;
    std::error_code Read(std::uint32_t address, std::span<std::uint8_t> data) override;
    std::error_code ProgramSector(std::uint32_t address,
                                  std::span<const std::uint8_t> data) override;
    // Waits for the chip's typical erase time, and once more up to its maximum.
    std::error_code EraseSector(std::uint32_t address) override;

private:
    struct Configuration {
        bool quad = false;
        std::uint8_t latency_code = 0;
    };

    // Sends the message; with `response`, receives as many bytes, byte i with message byte i.
    std::error_code Exchange(CommandBuilder& builder, std::vector<std::uint8_t>* response);
    std::error_code ReadRegister(std::uint8_t instruction, std::uint8_t& value);
    std::error_code WriteEnable();
    std::error_code ReadInfo(FlashInfo& info);

    std::shared_ptr<usb::device::UsbDevice> m_device;
    std::optional<FlashInfo> m_info;
    std::string m_id;
    std::optional<Configuration> m_configuration;
};

}  // namespace ovex::sdk
