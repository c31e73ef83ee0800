#pragma once

// A board's item lists as scripts use them: the names are read once when a collection is made,
// and every operation addresses an item by name. No value is cached: each call asks the board.

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "ovex/range/range.hpp"
#include "ovex/vendor_cmd/vendor_command.hpp"

namespace ovex::usb::device {
class UsbDevice;
}

namespace ovex::usb::vendor_cmd::impl {

template <typename Id>
class ItemCollection {
public:
    virtual ~ItemCollection() = default;
    // "Command", "State", "Monitor" or "Component": the word for messages.
    virtual const char* ItemType() const = 0;

    const std::vector<std::string>& names() const noexcept { return m_names; }

protected:
    // Reads the names of family `bRequest`; a failing request throws std::runtime_error with
    // "<category>: <message>" and no collection is made.
    ItemCollection(device::UsbDevice& device, std::uint8_t bRequest);

    // `request(device, id)` for the item of this name; invalid_argument, with the not-recognised
    // line logged and no request sent, for a name the board doesn't have.
    template <typename Request>
    std::error_code OnItem(std::string_view name, Request request) const {
        Id id;
        if (const auto error = Find(name, id)) {
            return error;
        }
        return request(*m_device, id);
    }

private:
    std::error_code Find(std::string_view name, Id& id) const;

    device::UsbDevice* m_device;
    std::vector<std::string> m_names;
};

class Commands : public ItemCollection<command::CmdId> {
public:
    explicit Commands(device::UsbDevice& device);
    const char* ItemType() const override { return "Command"; }

    std::error_code invoke(std::string_view name, double timeout = kDefaultTimeout);
    // `data` goes to the board; its size is the request's length.
    std::error_code invoke_out(std::string_view name, std::span<const std::uint8_t> data,
                               double timeout = kDefaultTimeout);
    // The board answers into `data`; its size is the request's length.
    std::error_code invoke_in(std::string_view name, std::span<std::uint8_t> data,
                              double timeout = kDefaultTimeout);
};

class States : public ItemCollection<state::StateId> {
public:
    explicit States(device::UsbDevice& device);
    const char* ItemType() const override { return "State"; }

    std::error_code get_value(std::string_view name, int& value, double timeout = kDefaultTimeout);
    std::error_code set_value(std::string_view name, int value, double timeout = kDefaultTimeout);
    std::error_code get_limits(std::string_view name, range::Range<int>& limits,
                               double timeout = kDefaultTimeout);
};

class Monitors : public ItemCollection<monitor::MonitorId> {
public:
    explicit Monitors(device::UsbDevice& device);
    const char* ItemType() const override { return "Monitor"; }

    std::error_code get_value(std::string_view name, float& value,
                              double timeout = kDefaultTimeout);
    std::error_code get_range(std::string_view name, range::Range<float>& range,
                              double timeout = kDefaultTimeout);
};

class Versions : public ItemCollection<version::VersionId> {
public:
    explicit Versions(device::UsbDevice& device);
    const char* ItemType() const override { return "Component"; }

    std::error_code get_value(std::string_view name, std::string& value,
                              double timeout = kDefaultTimeout);
};

}  // namespace ovex::usb::vendor_cmd::impl
