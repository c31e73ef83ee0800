#pragma once

// The inner parts of the monitor stream: the producer that copies each frame off the endpoint's
// handler thread into a queue, and the receiver loop that decodes the frames on its own thread.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ovex/range/range.hpp"
#include "ovex/usb/data_producer.hpp"
#include "ovex/vendor_cmd/monitor_stream.hpp"

namespace ovex::usb::vendor_cmd::impl {

// One frame as the endpoint delivered it; null is the signal to end.
using Frame = std::unique_ptr<std::vector<std::uint8_t>>;

// Single producer, single consumer, room for two frames: a push waits while it is full, a pop
// while it is empty.
class FrameQueue;
std::shared_ptr<FrameQueue> MakeFrameQueue();

// What the board tells of one monitor at the start.
struct MetaDatum {
    std::string name;
    ValueType type = ValueType::Float;
    range::Range<float> range;
};
using MetaData = std::map<std::uint16_t, MetaDatum>;

class BufferProducer final : public device::IUsbDataProducer {
public:
    explicit BufferProducer(std::shared_ptr<FrameQueue> queue);
    // Pushes the null frame that ends the receiver.
    ~BufferProducer() override;
    BufferProducer(const BufferProducer&) = delete;
    BufferProducer& operator=(const BufferProducer&) = delete;

    device::XferBuffer Acquire(std::uint32_t size) override;
    // Copies the delivered bytes into a frame of their own and queues it.
    void Deliver(const device::XferBuffer& buffer) override;
    void Release(const device::XferBuffer& buffer) override;

private:
    std::vector<std::uint8_t> m_buffer;
    std::shared_ptr<FrameQueue> m_queue;
};

// The receiver thread's body: decodes frames until the null frame comes, tells the observer (or
// the logging observer once it is gone), and returns when every notification has finished.
void RunReceiver(const std::shared_ptr<FrameQueue>& queue,
                 const std::weak_ptr<monitor::IValueObserver>& observer, const MetaData& metadata);

}  // namespace ovex::usb::vendor_cmd::impl
