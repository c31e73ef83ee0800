#include "ovex/vendor_cmd/monitor_stream.hpp"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <future>
#include <limits>
#include <semaphore>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "bitmanip/bitmanip.hpp"
#include "ovex/log/log.hpp"
#include "ovex/usb/lua_bindings.hpp"
#include "ovex/usb/usb_device.hpp"
#include "ovex/vendor_cmd/impl/logging_observer.hpp"
#include "ovex/vendor_cmd/impl/monitor_receiver.hpp"
#include "ovex/vendor_cmd/items.hpp"
// After the transport's headers: they give the queue its annotations for ThreadSanitizer.
#include <readerwriterqueue/readerwriterqueue.h>

namespace ovex::usb::vendor_cmd::impl {

class FrameQueue {
public:
    void Push(Frame frame) {
        m_room.acquire();
        const bool queued = m_frames.try_enqueue(std::move(frame));
        OVEX_CHECK(queued, "BUG: Monitor frame queue refused a frame it had room for.");
        m_ready.release();
    }

    Frame Pop() {
        m_ready.acquire();
        Frame frame;
        const bool taken = m_frames.try_dequeue(frame);
        OVEX_CHECK(taken, "BUG: Monitor frame queue had no frame though one was signalled.");
        m_room.release();
        return frame;
    }

private:
    static constexpr std::ptrdiff_t kCapacity = 2;

    moodycamel::ReaderWriterQueue<Frame> m_frames{kCapacity};
    std::counting_semaphore<kCapacity> m_room{kCapacity};
    std::counting_semaphore<kCapacity> m_ready{0};
};

std::shared_ptr<FrameQueue> MakeFrameQueue() {
    return std::make_shared<FrameQueue>();
}

BufferProducer::BufferProducer(std::shared_ptr<FrameQueue> queue) : m_queue(std::move(queue)) {}

BufferProducer::~BufferProducer() {
    m_queue->Push(nullptr);
}

device::XferBuffer BufferProducer::Acquire(std::uint32_t size) {
    m_buffer.assign(size, 0);
    return {m_buffer.data(), size, 0};
}

void BufferProducer::Deliver(const device::XferBuffer& buffer) {
    if (buffer.size == 0) {
        OVEX_LOG_ERROR("Buffer sent by the transfer is empty.");
    }
    OVEX_LOG_DEBUG("Received monitor data from device (%d bytes).",
                   static_cast<int>(buffer.transferred));
    m_queue->Push(std::make_unique<std::vector<std::uint8_t>>(buffer.buffer,
                                                              buffer.buffer + buffer.transferred));
}

void BufferProducer::Release(const device::XferBuffer&) {}

namespace {

constexpr std::size_t kRecordSize = 10;
constexpr double kMetadataTimeout = 10.0;

struct Record {
    monitor::Flags flags;
    float value = 0.0f;
    std::uint32_t timestamp = 0;
};

// The last news of one monitor.
struct Value {
    monitor::Flags flags;
    float value = 0.0f;
    std::uint32_t timestamp = 0;
};

using Observer = std::shared_ptr<monitor::IValueObserver>;
using Tasks = std::vector<std::future<void>>;

// By id, in ascending order; a later record of the same id replaces the earlier one.
std::map<std::uint8_t, Record> DecodeFrame(std::span<const std::uint8_t> frame) {
    std::map<std::uint8_t, Record> records;
    if (frame.size() % kRecordSize != 0) {
        OVEX_LOG_ERROR("Monitor data frame received from the device is incomplete.");
        return records;
    }
    for (std::size_t offset = 0; offset < frame.size(); offset += kRecordSize) {
        const auto bytes = frame.subspan(offset, kRecordSize);
        Record record;
        record.flags.bits = bytes[1];
        if (record.flags.is_available()) {
            record.value = bitmanip::float_from_span_le(bytes.subspan(2, 4));
        }
        record.timestamp = bitmanip::u32_from_span_le(bytes.subspan(6, 4));
        if (!records.insert_or_assign(bytes[0], record).second) {
            OVEX_LOG_WARN("Duplicate value of monitor ID%d within same update frame.", bytes[0]);
        }
    }
    return records;
}

// Truncation towards zero; what no 32-bit integer holds saturates, and a NaN reads as 0.
std::int32_t Truncate(float value) {
    if (std::isnan(value)) {
        return 0;
    }
    const double truncated = std::trunc(static_cast<double>(value));
    if (truncated <= std::numeric_limits<std::int32_t>::min()) {
        return std::numeric_limits<std::int32_t>::min();
    }
    if (truncated >= std::numeric_limits<std::int32_t>::max()) {
        return std::numeric_limits<std::int32_t>::max();
    }
    return static_cast<std::int32_t>(truncated);
}

// Runs on a task of its own: observers never block the receiver.
void DeliverValue(const Observer& observer, const MetaDatum& datum, monitor::Flags flags,
                  float value, std::uint32_t timestamp) {
    const auto& range = datum.range;
    try {
        switch (datum.type) {
            case ValueType::Float:
                if (!range.Contains(value)) {
                    OVEX_LOG_WARN(
                        "Received value %g of monitor %s is out of expected range [%g; %g].",
                        static_cast<double>(value), datum.name.c_str(),
                        static_cast<double>(range.min()), static_cast<double>(range.max()));
                }
                observer->OnFloatUpdate(datum.name, flags, value, timestamp);
                break;
            case ValueType::Integer: {
                const std::int32_t integer = Truncate(value);
                if (std::isnan(value) || !range.Contains(static_cast<float>(integer))) {
                    OVEX_LOG_WARN(
                        "Received value %d of monitor %s is out of expected range [%g; %g].",
                        integer, datum.name.c_str(), static_cast<double>(range.min()),
                        static_cast<double>(range.max()));
                }
                observer->OnIntUpdate(datum.name, flags, integer, timestamp);
                break;
            }
        }
    } catch (const std::exception& error) {
        OVEX_LOG_ERROR("Exception thrown during value change notification: '%s'.", error.what());
    } catch (...) {
        OVEX_LOG_ERROR("Unknown exception thrown during value change notification.");
    }
}

void NotifyAvailability(const Observer& observer, const MetaDatum& datum, monitor::Flags flags,
                        std::uint32_t timestamp) {
    try {
        observer->OnAvailabilityChange(datum.name, flags, timestamp);
    } catch (const std::exception& error) {
        OVEX_LOG_ERROR("Exception thrown during value change notification: '%s'.", error.what());
    } catch (...) {
        OVEX_LOG_ERROR("Unknown exception thrown during value change notification.");
    }
}

// Stores the frame's news and starts a task for each notification. The metadata outlives every
// task: the receiver waits for all of them before it returns.
void Update(const std::map<std::uint8_t, Record>& records, const MetaData& metadata,
            std::map<std::uint16_t, Value>& values, const Observer& observer, Tasks& tasks) {
    for (const auto& [id, record] : records) {
        const auto datum = metadata.find(id);
        if (datum == metadata.end()) {
            OVEX_LOG_WARN("Value update received for unknown monitor ID%d, ignoring it.", id);
            continue;
        }
        const MetaDatum& meta = datum->second;
        OVEX_LOG_DEBUG("Value update received for '%s' (ID%d).", meta.name.c_str(), id);
        Value& stored = values[id];
        const bool was_available = stored.flags.is_available();
        stored.flags = record.flags;
        stored.timestamp = record.timestamp;
        if (was_available != record.flags.is_available()) {
            tasks.push_back(std::async(std::launch::async, NotifyAvailability, observer,
                                       std::cref(meta), record.flags, record.timestamp));
        }
        if (record.flags.is_available()) {
            stored.value = record.value;
            tasks.push_back(std::async(std::launch::async, DeliverValue, observer, std::cref(meta),
                                       record.flags, record.value, record.timestamp));
        }
    }
}

void SweepFinished(Tasks& tasks) {
    const auto finished = std::erase_if(tasks, [](const std::future<void>& task) {
        return task.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    OVEX_LOG_DEBUG("Collected %zu finished async callbacks.", finished);
}

std::error_code ReadMetaData(device::UsbDevice& device, MetaData& metadata) {
    unsigned int count = 0;
    if (const auto error = monitor::GetCount(device, count, kMetadataTimeout)) {
        OVEX_LOG_ERROR("Failed to retrieve monitor item count from the device.");
        return error;
    }
    for (unsigned int index = 0; index < count; ++index) {
        const auto id = static_cast<std::uint16_t>(index);
        MetaDatum datum;
        if (const auto error =
                monitor::GetName(device, monitor::MonitorId(id), datum.name, kMetadataTimeout)) {
            OVEX_LOG_ERROR("Failed to retrieve name of monitor ID%d.", id);
            return error;
        }
        if (const auto error =
                monitor::GetRange(device, monitor::MonitorId(id), datum.range, kMetadataTimeout)) {
            OVEX_LOG_ERROR("Failed to retrieve range of monitor ID%d.", id);
            return error;
        }
        const auto [entry, inserted] = metadata.emplace(id, std::move(datum));
        if (!inserted) {
            OVEX_LOG_ERROR(
                "There are multiple monitors ID%d presented by the device, ignoring the duplicate.",
                id);
            continue;
        }
        OVEX_LOG_DEBUG("New monitored value found: '%s', <%.02f; %.02f>.",
                       entry->second.name.c_str(), static_cast<double>(entry->second.range.min()),
                       static_cast<double>(entry->second.range.max()));
    }
    return {};
}

void MergeTypes(MetaData& metadata, const UpdateReceiver::TypeInfos& type_infos) {
    for (const auto& [id, info] : type_infos) {
        if (!metadata.contains(id)) {
            OVEX_LOG_WARN(
                "User provided type information for value ID%d (%s), which is not presented by "
                "the device.",
                id, info.name.c_str());
        }
    }
    for (auto& [id, datum] : metadata) {
        const auto info = type_infos.find(id);
        if (info == type_infos.end()) {
            datum.type = ValueType::Float;
            OVEX_LOG_WARN(
                "Device provides value ID%d (%s), however there is no type information provided. "
                "Will treat the value as a float.",
                id, datum.name.c_str());
            continue;
        }
        datum.type = info->second.type;
        OVEX_LOG_DEBUG("Monitored value ID%d (%s) will be treated as %s.", id, datum.name.c_str(),
                       datum.type == ValueType::Integer ? "signed integer" : "float");
        if (info->second.name != datum.name) {
            OVEX_LOG_WARN("Monitor name ID%d mismatch - user: %s, device: %s.", id,
                          info->second.name.empty() ? "*EMPTY*" : info->second.name.c_str(),
                          datum.name.c_str());
        }
    }
}

std::string HexAddress(std::uint8_t address) {
    char text[5];
    std::snprintf(text, sizeof(text), "0x%02X", address);
    return text;
}

device::UsbInterruptEp* InterruptEndpoint(const std::shared_ptr<device::UsbDevice>& device,
                                          std::uint8_t address) {
    if (!device) {
        throw std::invalid_argument("Device pointer is invalid");
    }
    auto* endpoint = device->FindEndpoint<device::UsbInterruptEp>(address);
    if (endpoint == nullptr) {
        throw std::invalid_argument("Device doesn't have interrupt endpoint with address " +
                                    HexAddress(address));
    }
    return endpoint;
}

// Closing a device destroys its endpoints; one opened again has new ones.
bool HoldsEndpoint(device::UsbDevice& device, const device::UsbInterruptEp* endpoint) {
    for (device::AnyEndpoint& any : device.GetEndpoints()) {
        if (std::get_if<device::UsbInterruptEp>(&any) == endpoint) {
            return true;
        }
    }
    return false;
}

}  // namespace

void RunReceiver(const std::shared_ptr<FrameQueue>& queue,
                 const std::weak_ptr<monitor::IValueObserver>& observer, const MetaData& metadata) {
    const Observer fallback = std::make_shared<LoggingObserver>();
    std::map<std::uint16_t, Value> values;
    for (const auto& entry : metadata) {
        values.emplace(entry.first, Value{});
    }
    Tasks tasks;
    while (true) {
        const Frame frame = queue->Pop();
        if (!frame) {
            OVEX_LOG_INFO("Empty buffer received, terminating.");
            break;
        }
        SweepFinished(tasks);
        Observer target = observer.lock();
        if (!target) {
            target = fallback;
        }
        Update(DecodeFrame(*frame), metadata, values, target, tasks);
    }
    for (auto& task : tasks) {
        task.wait();
    }
}

UpdateReceiver::UpdateReceiver(std::shared_ptr<device::UsbDevice> device, std::uint8_t endpoint)
    : m_ep(InterruptEndpoint(device, endpoint)), m_device(std::move(device)) {}

UpdateReceiver::~UpdateReceiver() {
    if (IsRunning()) {
        if (const auto error = Stop()) {
            OVEX_LOG_EC(log::kError, "Failed to stop the monitor receiver - %s: %s", error);
        }
    }
}

std::error_code UpdateReceiver::Start(std::weak_ptr<monitor::IValueObserver> observer,
                                      const TypeInfos& type_infos, double timeout) {
    if (IsRunning()) {
        return std::make_error_code(std::errc::operation_not_permitted);
    }
    if (const auto error = device::RequireOpen(*m_device)) {
        return error;
    }
    if (!HoldsEndpoint(*m_device, m_ep)) {
        OVEX_LOG_ERROR(
            "The monitor receiver's interrupt endpoint is gone: the device was closed after the "
            "receiver was made.");
        return std::make_error_code(std::errc::not_connected);
    }
    MetaData metadata;
    if (const auto error = ReadMetaData(*m_device, metadata)) {
        return error;
    }
    MergeTypes(metadata, type_infos);
    // The receiver runs before the stream does: a thread that can't start leaves nothing behind,
    // and frames never wait for a reader that isn't there.
    auto queue = MakeFrameQueue();
    auto producer = std::make_shared<BufferProducer>(queue);
    thread::WrappedThread<> receiver(
        thread::ThreadParams{"MonitorReceiver", std::nullopt, std::nullopt},
        [queue, observer = std::move(observer), metadata = std::move(metadata)](std::stop_token) {
            RunReceiver(queue, observer, metadata);
        });
    auto started = m_ep->ReadPerpetual(1, m_ep->GetMaxPacketSize(), std::move(producer), timeout);
    if (const auto* error = std::get_if<std::error_code>(&started)) {
        // The transfer that didn't start has released the producer, which ended the receiver.
        receiver.Join();
        OVEX_LOG_EC(log::kError, "Failed to start asynchronous transfer - %s: %s", *error);
        return *error;
    }
    m_state.emplace(std::move(std::get<device::AsyncState>(started)));
    m_thread = std::move(receiver);
    return {};
}

std::error_code UpdateReceiver::Stop() {
    if (!IsRunning()) {
        return std::make_error_code(std::errc::operation_not_permitted);
    }
    const auto aborted = m_state->Abort();
    if (aborted) {
        OVEX_LOG_EC(log::kWarning, "Failed to stop asynchronous transfer - %s: %s", aborted);
    }
    const device::UsbResult result = m_state->Future().get();
    if (result.error) {
        OVEX_LOG_EC(log::kWarning, "Transfer completed with error - %s: %s", result.error);
    }
    // The transfer releases the producer, whose last word ends the receiver.
    m_state.reset();
    m_thread.Join();
    return aborted;
}

}  // namespace ovex::usb::vendor_cmd::impl
