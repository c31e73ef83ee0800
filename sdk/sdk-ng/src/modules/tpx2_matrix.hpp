#pragma once

// The Timepix2 pixel configuration matrix. Host form: one byte per pixel, index y * 256 + x,
// bit 0 a configuration bit, bit 1 the mask, bits 2..5 the threshold trim, bit 6 a second
// configuration bit. The board takes the host form as it is and gives it back as two half-size
// matrices, CONF and TRIM, two pixels to a byte (low nibble the even pixel), read over the data
// endpoint in big-endian 32-bit words.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

#include "ovex/usb/data_producer.hpp"

namespace ovex::sdk {

inline constexpr std::size_t TPX2_CHIP_NPIXELS = 256 * 256;

namespace tpx2 {

inline constexpr std::uint32_t kMatrixSide = 256;
// One nibble per pixel.
inline constexpr std::size_t kHalfMatrixSize = TPX2_CHIP_NPIXELS / 2;
inline constexpr std::uint8_t kDefaultPixel = 0x40;  // bit 6 set, unmasked, trim 0
inline constexpr std::uint8_t kMaskBit = 1;

// The host form from the CONF and TRIM read-backs, each of kHalfMatrixSize bytes, into `out`
// of TPX2_CHIP_NPIXELS bytes. CONF nibble bits 0, 1 and 3 become pixel bits 0, 1 and 6, the TRIM
// nibble bits 2..5; CONF bit 2 is dropped.
void MergeConfTrim(std::span<const std::uint8_t> conf, std::span<const std::uint8_t> trim,
                   std::span<std::uint8_t> out) noexcept;

// Reverses the byte order of each whole 32-bit word; a trailing part word stays as it is.
void SwapWordBytes(std::span<std::uint8_t> bytes) noexcept;

}  // namespace tpx2

// Lends one buffer to the perpetual read of a matrix, once: the transfer finds no buffer for a
// second pass and ends. The delivered words come back to host byte order. The callbacks come on
// the USB event thread; the waiting caller reads the data once the transfer has been collected.
class CfgDataProducer final : public usb::device::IUsbDataProducer {
public:
    explicit CfgDataProducer(std::size_t size) : m_buffer(size) {}

    usb::device::XferBuffer Acquire(std::uint32_t size) override;
    void Deliver(const usb::device::XferBuffer& buffer) override;
    void Release(const usb::device::XferBuffer&) override {}

    // True once data has come, false at the deadline. An empty delivery, which is what a
    // transfer that timed out on a silent board gives, doesn't end the wait.
    bool WaitDelivered(std::chrono::steady_clock::time_point deadline);
    bool Finished() const noexcept { return m_finished.load(); }
    // The buffer cut to the bytes that came, moved out.
    std::vector<std::uint8_t> TakeData();

private:
    std::vector<std::uint8_t> m_buffer;
    std::atomic<bool> m_finished{false};
    std::mutex m_mutex;
    std::condition_variable m_delivered;
    std::size_t m_received = 0;
};

}  // namespace ovex::sdk
