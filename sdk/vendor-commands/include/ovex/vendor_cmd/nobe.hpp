#pragma once

// Requests of the NoBE board family: the layout of its chips, the sensor bias, each chip's FSR
// register and id, and a simple acquisition. What the numbers mean (bias and time units, what a
// geometry cell stands for) is the board's; they are passed on as they are.

#include <cstdint>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "ovex/vendor_cmd/vendor_command.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd {

// A grid of cells, kept as a vector of rows.
template <typename T>
class Matrix {
public:
    struct dimensions {
        std::uint16_t rows = 0;
        std::uint16_t columns = 0;
    };

    Matrix() = default;
    // All cells are T{}.
    Matrix(std::uint16_t rows, std::uint16_t columns) : m_rows(rows, std::vector<T>(columns)) {}

    // The number of rows and the length of the first one.
    struct dimensions dimensions() const {
        return {static_cast<std::uint16_t>(m_rows.size()),
                static_cast<std::uint16_t>(m_rows.empty() ? 0 : m_rows.front().size())};
    }

    const std::vector<std::vector<T>>& rows() const noexcept { return m_rows; }
    std::vector<T>& operator[](std::size_t row) { return m_rows[row]; }

private:
    std::vector<std::vector<T>> m_rows;
};

namespace nobe {

// bRequest of each request; wValue is always 0, the chip stands in the high byte of wIndex.
namespace request {
inline constexpr std::uint8_t kBias = 0x10;
inline constexpr std::uint8_t kChipGeometry = 0x15;
inline constexpr std::uint8_t kFsr = 0x16;
inline constexpr std::uint8_t kChipId = 0x18;
inline constexpr std::uint8_t kAcquireSingle = 0x19;
inline constexpr std::uint8_t kConfMatrixWrite = 0x1A;
inline constexpr std::uint8_t kAcquireMulti = 0x1B;
inline constexpr std::uint8_t kAcquireAbort = 0x1C;
}  // namespace request

// The size of a chip's FSR register; the transfers of it take exactly this many bytes.
inline constexpr std::size_t kFsrSize = 32;
// The answer to the geometry request: rows and columns, then one byte per cell.
inline constexpr std::size_t kGeometryFieldSize = 256;

std::error_code SetBias(device::UsbDevice& device, float value, double timeout = kDefaultTimeout);
std::error_code GetBias(device::UsbDevice& device, float& value, double timeout = kDefaultTimeout);
// A device that reports more cells than its answer holds leaves `geometry` as it was.
std::error_code ReadChipGeometry(device::UsbDevice& device, Matrix<unsigned char>& geometry,
                                 double timeout = kDefaultTimeout);
// `data` must hold kFsrSize bytes, else invalid_argument without a request.
std::error_code ReadFsr(device::UsbDevice& device, std::uint8_t chip, std::span<std::uint8_t> data,
                        double timeout = kDefaultTimeout);
std::error_code WriteFsr(device::UsbDevice& device, std::uint8_t chip,
                         std::span<const std::uint8_t> data, double timeout = kDefaultTimeout);
std::error_code GetChipId(device::UsbDevice& device, std::uint8_t chip, std::string& id,
                          double timeout = kDefaultTimeout);
std::error_code AcquireSingle(device::UsbDevice& device, float time,
                              double timeout = kDefaultTimeout);
// Lets the device take a chip configuration on the bulk OUT endpoint.
std::error_code ConfMatrixWrite(device::UsbDevice& device, double timeout = kDefaultTimeout);
std::error_code AcquireMulti(device::UsbDevice& device, float time,
                             double timeout = kDefaultTimeout);
std::error_code AcquireAbort(device::UsbDevice& device, double timeout = kDefaultTimeout);

}  // namespace nobe

}  // namespace ovex::usb::vendor_cmd
