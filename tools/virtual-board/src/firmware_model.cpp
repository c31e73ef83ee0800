#include "ovex/vboard/firmware_model.hpp"

#include <algorithm>

#include "wire_format.hpp"

namespace ovex::vboard {
namespace {

constexpr std::uint8_t kGetStatus = 0x00;
constexpr std::uint8_t kClearFeature = 0x01;
constexpr std::uint8_t kSetFeature = 0x03;
constexpr std::uint8_t kGetDescriptor = 0x06;
constexpr std::uint8_t kRecipientEndpoint = 0x02;
constexpr std::uint16_t kEndpointHalt = 0;

ControlReply Answer(std::vector<std::uint8_t> data, std::uint16_t length) {
    if (data.size() > length) {
        data.resize(length);
    }
    return {ControlReply::Kind::kAnswer, std::move(data)};
}

}  // namespace

bool RequestMatch::Matches(const SetupPacket& setup) const {
    return setup.bRequest == bRequest && (!wValue || *wValue == setup.wValue) &&
           (!wIndex || *wIndex == setup.wIndex);
}

FirmwareModel::FirmwareModel(BoardIdentity identity) : m_identity(std::move(identity)) {}

ControlReply FirmwareModel::Control(const SetupPacket& setup,
                                    std::span<const std::uint8_t> out_data) {
    std::unique_lock lock(m_mutex);
    m_log.push_back(setup);
    if (!setup.IsVendor()) {
        return Standard(setup);
    }
    if (auto fault = TakeFault(setup)) {
        if (fault->kind == ControlReply::Kind::kStall) {
            m_last_error = fault->error;
        }
        return *std::move(fault);
    }
    if (setup.bRequest == kLastErrorRequest && setup.IsIn() && m_answers_last_error) {
        return Answer(wire::U32(m_last_error), setup.wLength);
    }
    const auto found = m_vendor.find(setup.bRequest);
    if (found == m_vendor.end()) {
        return Refuse(kNotSupported);
    }
    VendorHandler handler = found->second;
    m_last_error = kNoError;
    lock.unlock();  // the handler may call back into the model
    ControlReply reply = handler(setup, out_data);
    if (reply.kind == ControlReply::Kind::kStall) {
        SetLastError(reply.error);
    }
    if (reply.kind == ControlReply::Kind::kAnswer && setup.IsIn()) {
        reply.data.resize(std::min<std::size_t>(reply.data.size(), setup.wLength));
    }
    return reply;
}

std::optional<ControlReply> FirmwareModel::TakeFault(const SetupPacket& setup) {
    const auto found = std::find_if(m_faults.begin(), m_faults.end(),
                                    [&](const Fault& fault) { return fault.match.Matches(setup); });
    if (found == m_faults.end()) {
        return std::nullopt;
    }
    ControlReply reply = found->reply;
    if (--found->count <= 0) {
        m_faults.erase(found);
    }
    return reply;
}

ControlReply FirmwareModel::Standard(const SetupPacket& setup) {
    const bool to_endpoint = (setup.bmRequestType & 0x1F) == kRecipientEndpoint;
    const auto endpoint = static_cast<std::uint8_t>(setup.wIndex);
    switch (setup.bRequest) {
        case kGetDescriptor:
            if ((setup.wValue >> 8) == 3) {
                auto text = StringDescriptor(m_identity, static_cast<std::uint8_t>(setup.wValue));
                if (!text.empty()) {
                    return Answer(std::move(text), setup.wLength);
                }
            } else if ((setup.wValue >> 8) == 1 || (setup.wValue >> 8) == 2) {
                auto all = DeviceAndConfigDescriptors(m_identity);
                if ((setup.wValue >> 8) == 1) {
                    all.resize(18);
                } else {
                    all.erase(all.begin(), all.begin() + 18);
                }
                return Answer(std::move(all), setup.wLength);
            }
            return Refuse(kBadArgument);
        case kGetStatus:
            if (to_endpoint) {
                if (!HasEndpoint(endpoint)) {
                    return Refuse(kBadIndex);
                }
                return Answer({static_cast<std::uint8_t>(m_halted.count(endpoint)), 0},
                              setup.wLength);
            }
            return Answer({0, 0}, setup.wLength);
        case kClearFeature:
        case kSetFeature:
            if (to_endpoint && setup.wValue == kEndpointHalt && HasEndpoint(endpoint)) {
                if (setup.bRequest == kSetFeature) {
                    m_halted.insert(endpoint);
                } else {
                    m_halted.erase(endpoint);
                }
                return {};
            }
            return Refuse(kNotSupported);
        default:
            return Refuse(kNotSupported);
    }
}

ControlReply FirmwareModel::Refuse(std::uint32_t reason) {
    m_last_error = reason;
    return {ControlReply::Kind::kStall, {}};
}

bool FirmwareModel::HasEndpoint(std::uint8_t endpoint) const {
    return endpoint == 0 ||
           std::any_of(m_identity.endpoints.begin(), m_identity.endpoints.end(),
                       [&](const EndpointLayout& layout) { return layout.address == endpoint; });
}

void FirmwareModel::SetVendorRequest(std::uint8_t bRequest, VendorHandler handler) {
    std::lock_guard lock(m_mutex);
    m_vendor[bRequest] = std::move(handler);
}

void FirmwareModel::EnableLastErrorRequest(bool enabled) {
    std::lock_guard lock(m_mutex);
    m_answers_last_error = enabled;
}

void FirmwareModel::SetLastError(std::uint32_t word) {
    std::lock_guard lock(m_mutex);
    m_last_error = word;
}

std::uint32_t FirmwareModel::LastErrorWord() const {
    std::lock_guard lock(m_mutex);
    return m_last_error;
}

std::vector<SetupPacket> FirmwareModel::RequestLog() const {
    std::lock_guard lock(m_mutex);
    return m_log;
}

bool FirmwareModel::IsHalted(std::uint8_t endpoint) const {
    std::lock_guard lock(m_mutex);
    return m_halted.count(endpoint) != 0;
}

void FirmwareModel::Halt(std::uint8_t endpoint) {
    std::lock_guard lock(m_mutex);
    m_halted.insert(endpoint);
}

void FirmwareModel::ClearHalt(std::uint8_t endpoint) {
    std::lock_guard lock(m_mutex);
    m_halted.erase(endpoint);
}

void FirmwareModel::AttachSource(std::uint8_t endpoint, std::shared_ptr<IDataSource> source) {
    std::lock_guard lock(m_mutex);
    m_sources[endpoint] = std::move(source);
}

void FirmwareModel::AttachSink(std::uint8_t endpoint, std::shared_ptr<IDataSink> sink) {
    std::lock_guard lock(m_mutex);
    m_sinks[endpoint] = std::move(sink);
}

std::shared_ptr<IDataSource> FirmwareModel::Source(std::uint8_t endpoint) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_sources.find(endpoint);
    return found == m_sources.end() ? nullptr : found->second;
}

std::shared_ptr<IDataSink> FirmwareModel::Sink(std::uint8_t endpoint) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_sinks.find(endpoint);
    return found == m_sinks.end() ? nullptr : found->second;
}

void FirmwareModel::StallNext(RequestMatch match, int count, std::uint32_t word) {
    if (count <= 0) {
        return;
    }
    std::lock_guard lock(m_mutex);
    m_faults.push_back({std::move(match), count, ControlReply::Stall(word)});
}

void FirmwareModel::IgnoreNext(RequestMatch match, int count) {
    if (count <= 0) {
        return;
    }
    std::lock_guard lock(m_mutex);
    m_faults.push_back({std::move(match), count, {ControlReply::Kind::kNoAnswer, {}, kNoError}});
}

}  // namespace ovex::vboard
