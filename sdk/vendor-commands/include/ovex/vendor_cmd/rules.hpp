#pragma once

// The two ways a request is completed. A read trusts the answer when the transfer succeeded and
// the field decodes; otherwise the board's last-error word decides. A write always asks the board
// for its last-error word, so a state change only counts when the board says it happened.

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <system_error>

#include "ovex/range/range.hpp"
#include "ovex/vendor_cmd/codec.hpp"
#include "ovex/vendor_cmd/vendor_command.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd::impl {

using Decoder = std::function<bool(std::span<std::uint8_t> field)>;
using Encoder = std::function<void(std::span<std::uint8_t> field)>;

// The read rule: a control IN into `field` (zeroed first), then `decode` on the whole field,
// whatever number of bytes arrived.
std::error_code RecvViaCmd(device::UsbDevice& device, VendorCommand command,
                           std::span<std::uint8_t> field, const Decoder& decode, double timeout);

// The write rule with the payload going to the board, and with the board answering into `data`;
// `transferred`, if given, gets the number of bytes the board answered, which may be fewer.
std::error_code SendOut(device::UsbDevice& device, VendorCommand command,
                        std::span<const std::uint8_t> data, double timeout);
std::error_code SendIn(device::UsbDevice& device, VendorCommand command,
                       std::span<std::uint8_t> data, double timeout,
                       std::size_t* transferred = nullptr);

// The write rule with a payload of `size` bytes that `encode` fills.
std::error_code SendViaCmd(device::UsbDevice& device, VendorCommand command, std::size_t size,
                           const Encoder& encode, double timeout);

// The size of the field that the read rule receives a value of this type in.
template <typename T>
inline constexpr std::size_t kFieldSize = 4;
template <>
inline constexpr std::size_t kFieldSize<std::string> = kStringFieldSize;
template <>
inline constexpr std::size_t kFieldSize<range::Range<int>> = 8;
template <>
inline constexpr std::size_t kFieldSize<range::Range<float>> = 8;

template <typename T>
std::error_code RecvViaCmd(device::UsbDevice& device, VendorCommand command, T& value,
                           double timeout) {
    std::array<std::uint8_t, kFieldSize<T>> field{};
    return RecvViaCmd(
        device, command, field, [&value](std::span<std::uint8_t> f) { return Decode(f, value); },
        timeout);
}

template <typename T>
std::error_code SendViaCmd(device::UsbDevice& device, VendorCommand command, T value,
                           double timeout) {
    std::array<std::uint8_t, 4> field{};
    Encode(field, value);
    return SendOut(device, command, field, timeout);
}

}  // namespace ovex::usb::vendor_cmd::impl
