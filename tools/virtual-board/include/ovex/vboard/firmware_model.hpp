#pragma once

// The board's firmware as a state machine with no I/O of its own: it answers control requests,
// keeps the halt state of its endpoints and the reason of the last refusal, and owns the data
// sources and sinks of its endpoints. The USB attachment puts it on the wire.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "ovex/vboard/board_identity.hpp"
#include "ovex/vboard/data_source.hpp"
#include "ovex/vboard/error_words.hpp"

namespace ovex::vboard {

struct SetupPacket {
    std::uint8_t bmRequestType = 0;
    std::uint8_t bRequest = 0;
    std::uint16_t wValue = 0;
    std::uint16_t wIndex = 0;
    std::uint16_t wLength = 0;

    bool IsIn() const { return (bmRequestType & 0x80) != 0; }
    bool IsVendor() const { return (bmRequestType & 0x60) == 0x40; }
};

struct ControlReply {
    enum class Kind {
        kAnswer,    // completes; IN data in `data`
        kStall,     // endpoint 0 stalls, the reason is kept
        kNoAnswer,  // never completes: the host's timeout ends it
    };
    Kind kind = Kind::kAnswer;
    std::vector<std::uint8_t> data;
    std::uint32_t error = kNoError;  // of a stall: the word the last-error request reports

    static ControlReply Answer(std::vector<std::uint8_t> data = {}) {
        return {Kind::kAnswer, std::move(data), kNoError};
    }
    static ControlReply Stall(std::uint32_t error) { return {Kind::kStall, {}, error}; }
};

// Which requests a fault applies to: a bRequest, and optionally only one wValue or wIndex.
struct RequestMatch {
    // Implicit: a bare bRequest matches all its requests.
    RequestMatch(std::uint8_t request) : bRequest(request) {}
    RequestMatch(std::uint8_t request, std::optional<std::uint16_t> value,
                 std::optional<std::uint16_t> index)
        : bRequest(request), wValue(value), wIndex(index) {}

    bool Matches(const SetupPacket& setup) const;

    std::uint8_t bRequest;
    std::optional<std::uint16_t> wValue;
    std::optional<std::uint16_t> wIndex;
};

// Vendor request that reads the last-error word.
inline constexpr std::uint8_t kLastErrorRequest = 0x00;

class FirmwareModel {
public:
    // A vendor request; it refuses with `ControlReply::Stall(reason)`.
    using VendorHandler =
        std::function<ControlReply(const SetupPacket&, std::span<const std::uint8_t> out_data)>;

    explicit FirmwareModel(BoardIdentity identity = {});

    const BoardIdentity& Identity() const { return m_identity; }

    // Control transfer on endpoint 0, standard and vendor requests. Thread-safe.
    ControlReply Control(const SetupPacket& setup, std::span<const std::uint8_t> out_data);

    void SetVendorRequest(std::uint8_t bRequest, VendorHandler handler);
    // Whether the last-error request is answered (it is, unless a boot loader runs: then it is
    // refused like any request that has no handler).
    void EnableLastErrorRequest(bool enabled);
    void SetLastError(std::uint32_t word);
    std::uint32_t LastErrorWord() const;
    // Every control request received, in order.
    std::vector<SetupPacket> RequestLog() const;

    // Endpoint halt, as set by the firmware or a SET_FEATURE and cleared by the host.
    bool IsHalted(std::uint8_t endpoint) const;
    void Halt(std::uint8_t endpoint);
    void ClearHalt(std::uint8_t endpoint);

    void AttachSource(std::uint8_t endpoint, std::shared_ptr<IDataSource> source);
    void AttachSink(std::uint8_t endpoint, std::shared_ptr<IDataSink> sink);
    std::shared_ptr<IDataSource> Source(std::uint8_t endpoint) const;
    std::shared_ptr<IDataSink> Sink(std::uint8_t endpoint) const;

    // Fault injection on vendor requests, the last-error request included: the next `count`
    // matching requests stall and leave `word` as the last error (0 too), or get no answer.
    void StallNext(RequestMatch match, int count = 1, std::uint32_t word = kFailure);
    void IgnoreNext(RequestMatch match, int count = 1);

private:
    ControlReply Standard(const SetupPacket& setup);
    ControlReply Vendor(const SetupPacket& setup, std::span<const std::uint8_t> out_data);
    ControlReply Refuse(std::uint32_t reason);
    bool HasEndpoint(std::uint8_t endpoint) const;

    struct Fault {
        RequestMatch match;
        int count;
        ControlReply reply;
    };
    // The reply of the first fault that matches, which is used up by it.
    std::optional<ControlReply> TakeFault(const SetupPacket& setup);

    const BoardIdentity m_identity;
    mutable std::mutex m_mutex;
    std::map<std::uint8_t, VendorHandler> m_vendor;
    std::uint32_t m_last_error = kNoError;
    bool m_answers_last_error = true;
    std::vector<SetupPacket> m_log;
    std::set<std::uint8_t> m_halted;
    std::map<std::uint8_t, std::shared_ptr<IDataSource>> m_sources;
    std::map<std::uint8_t, std::shared_ptr<IDataSink>> m_sinks;
    std::vector<Fault> m_faults;  // in the order they were set
};

}  // namespace ovex::vboard
