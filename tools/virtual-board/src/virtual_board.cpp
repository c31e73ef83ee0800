#include "ovex/vboard/virtual_board.hpp"

#include <algorithm>

namespace ovex::vboard {
namespace {

const ItemTables& TablesIn(const VirtualBoard::Settings& settings) {
    return settings.tables ? *settings.tables : TablesOf(settings.kind);
}

BoardIdentity IdentityIn(const VirtualBoard::Settings& settings) {
    BoardIdentity identity = settings.identity;
    if (identity.product.empty()) {
        identity.product = TablesIn(settings).product;
    }
    if (identity.bcd_device == 0) {
        identity.bcd_device = TablesIn(settings).bcd_device;
    }
    return identity;
}

// The data endpoint: the chip's configuration read-back goes out first, then the frames it read
// out, each in a transfer of its own, then its data-driven stream, then the counting stream.
class DataEndpoint final : public IDataSource {
public:
    DataEndpoint(FirmwareEngine& engine, std::shared_ptr<CountingSource> stream)
        : m_engine(engine), m_stream(std::move(stream)) {}

    Produced Produce(std::span<std::uint8_t> out, Clock::time_point now) override {
        if (const std::size_t read_back = m_engine.ReadOut(out); read_back > 0) {
            return Sent(out, {read_back, false});
        }
        if (const auto frame = m_engine.ReadFrame(out, m_mid_transfer)) {
            return Sent(out, *frame);
        }
        if (const auto hits = m_engine.ReadHits(out, m_mid_transfer)) {
            return Sent(out, *hits);
        }
        return Sent(out, m_stream->Produce(out, now));
    }

private:
    // Notes whether the transfer that `out` ends stays open with data in it.
    Produced Sent(std::span<std::uint8_t> out, Produced produced) {
        if (produced.end_of_transfer || produced.bytes == out.size()) {
            m_mid_transfer = false;
        } else if (produced.bytes > 0) {
            m_mid_transfer = true;
        }
        return produced;
    }

    FirmwareEngine& m_engine;
    std::shared_ptr<CountingSource> m_stream;
    bool m_mid_transfer = false;
};

// The configuration endpoint: what the host writes is kept for tests and goes to the chip's
// loader.
class ConfigEndpoint final : public IDataSink {
public:
    ConfigEndpoint(FirmwareEngine& engine, std::shared_ptr<BulkSink> kept)
        : m_engine(engine), m_kept(std::move(kept)) {}

    void Consume(std::span<const std::uint8_t> data) override {
        m_kept->Consume(data);
        m_engine.TakeConfiguration(data);
    }

private:
    FirmwareEngine& m_engine;
    std::shared_ptr<BulkSink> m_kept;
};

constexpr std::size_t kMonitorRecordSize = 10;

std::size_t MonitorFrameSize(const BoardIdentity& identity) {
    for (const EndpointLayout& endpoint : identity.endpoints) {
        if (endpoint.address == kMonitorEndpoint) {
            return std::max<std::size_t>(endpoint.max_packet_size / kMonitorRecordSize, 1) *
                   kMonitorRecordSize;
        }
    }
    return kMonitorRecordSize;
}

}  // namespace

VirtualBoard::VirtualBoard(TestBed& bed, int port, Settings settings)
    : m_monitor_frame_size(MonitorFrameSize(settings.identity)),
      m_model(IdentityIn(settings)),
      m_engine(m_model, TablesIn(settings), settings.boot_loader),
      m_stream(std::make_shared<CountingSource>(settings.stream)),
      m_frames(std::make_shared<FrameSource>()),
      m_sink(std::make_shared<BulkSink>()) {
    m_model.AttachSource(kDataEndpoint, std::make_shared<DataEndpoint>(m_engine, m_stream));
    m_model.AttachSource(kMonitorEndpoint, m_frames);
    m_model.AttachSink(kConfigEndpoint, std::make_shared<ConfigEndpoint>(m_engine, m_sink));
    if (settings.real_time) {
        m_engine.FollowRealTime();
    }
    m_usb = std::make_unique<UsbAttachment>(bed, m_model, port);
}

void VirtualBoard::RestartStream(CountingSource::Settings settings) {
    m_stream = std::make_shared<CountingSource>(settings);
    m_model.AttachSource(kDataEndpoint, std::make_shared<DataEndpoint>(m_engine, m_stream));
}

std::size_t VirtualBoard::PushMonitorRound() {
    const std::vector<std::uint8_t> records = m_engine.MonitorRound();
    std::size_t frames = 0;
    for (std::size_t offset = 0; offset < records.size(); offset += m_monitor_frame_size) {
        const std::size_t size = std::min(m_monitor_frame_size, records.size() - offset);
        m_frames->Push({records.begin() + static_cast<std::ptrdiff_t>(offset),
                        records.begin() + static_cast<std::ptrdiff_t>(offset + size)});
        ++frames;
    }
    return frames;
}

}  // namespace ovex::vboard
