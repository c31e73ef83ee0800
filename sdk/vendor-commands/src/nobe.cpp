#include "ovex/vendor_cmd/nobe.hpp"

#include <array>

#include "ovex/log/log.hpp"
#include "ovex/vendor_cmd/rules.hpp"

namespace ovex::usb::vendor_cmd::nobe {
namespace {

VendorCommand Request(std::uint8_t bRequest, std::uint8_t chip = 0) {
    return {bRequest, 0, static_cast<std::uint16_t>(chip << 8)};
}

std::error_code RequireFsrSize(std::size_t size) {
    if (size == kFsrSize) {
        return {};
    }
    OVEX_LOG_ERROR("FSR data must be exactly %zu bytes, not %zu.", kFsrSize, size);
    return std::make_error_code(std::errc::invalid_argument);
}

// The geometry answer (kGeometryFieldSize bytes) into `geometry`; false, and `geometry`
// unchanged, when the reported cells don't fit the field.
bool DecodeGeometry(std::span<const std::uint8_t> field, Matrix<unsigned char>& geometry) {
    unsigned int rows = 0;
    unsigned int columns = 0;
    vendor_cmd::impl::Decode(field.first(4), rows);
    vendor_cmd::impl::Decode(field.subspan(4, 4), columns);
    const std::uint32_t count = rows * columns;
    const auto cells = field.subspan(8);
    const std::size_t room = cells.size();
    if (count > room) {
        OVEX_LOG_ERROR("Received invalid chip count from the device: %u > %zu", count, room);
        return false;
    }
    // The matrix keeps 16-bit dimensions; the cells it gets are bounded by `count` as well, so a
    // product that wrapped around in 32 bits can't read past the field.
    Matrix<unsigned char> decoded(static_cast<std::uint16_t>(rows),
                                  static_cast<std::uint16_t>(columns));
    std::size_t next = 0;
    const auto shape = decoded.dimensions();
    for (std::size_t row = 0; row < shape.rows && next < count; ++row) {
        for (std::size_t column = 0; column < shape.columns && next < count; ++column) {
            decoded[row][column] = cells[next++];
        }
    }
    geometry = std::move(decoded);
    return true;
}

}  // namespace

std::error_code SetBias(device::UsbDevice& device, float value, double timeout) {
    return vendor_cmd::impl::SendViaCmd(device, Request(request::kBias), value, timeout);
}

std::error_code GetBias(device::UsbDevice& device, float& value, double timeout) {
    return vendor_cmd::impl::RecvViaCmd(device, Request(request::kBias), value, timeout);
}

std::error_code ReadChipGeometry(device::UsbDevice& device, Matrix<unsigned char>& geometry,
                                 double timeout) {
    std::array<std::uint8_t, kGeometryFieldSize> field{};
    return vendor_cmd::impl::RecvViaCmd(
        device, Request(request::kChipGeometry), field,
        [&geometry](std::span<std::uint8_t> f) { return DecodeGeometry(f, geometry); }, timeout);
}

std::error_code ReadFsr(device::UsbDevice& device, std::uint8_t chip, std::span<std::uint8_t> data,
                        double timeout) {
    if (const auto error = RequireFsrSize(data.size())) {
        return error;
    }
    return vendor_cmd::impl::SendIn(device, Request(request::kFsr, chip), data, timeout);
}

std::error_code WriteFsr(device::UsbDevice& device, std::uint8_t chip,
                         std::span<const std::uint8_t> data, double timeout) {
    if (const auto error = RequireFsrSize(data.size())) {
        return error;
    }
    return vendor_cmd::impl::SendOut(device, Request(request::kFsr, chip), data, timeout);
}

std::error_code GetChipId(device::UsbDevice& device, std::uint8_t chip, std::string& id,
                          double timeout) {
    return vendor_cmd::impl::RecvViaCmd(device, Request(request::kChipId, chip), id, timeout);
}

std::error_code AcquireSingle(device::UsbDevice& device, float time, double timeout) {
    return vendor_cmd::impl::SendViaCmd(device, Request(request::kAcquireSingle), time, timeout);
}

std::error_code ConfMatrixWrite(device::UsbDevice& device, double timeout) {
    return vendor_cmd::impl::SendOut(device, Request(request::kConfMatrixWrite), {}, timeout);
}

std::error_code AcquireMulti(device::UsbDevice& device, float time, double timeout) {
    return vendor_cmd::impl::SendViaCmd(device, Request(request::kAcquireMulti), time, timeout);
}

std::error_code AcquireAbort(device::UsbDevice& device, double timeout) {
    return vendor_cmd::impl::SendOut(device, Request(request::kAcquireAbort), {}, timeout);
}

}  // namespace ovex::usb::vendor_cmd::nobe
