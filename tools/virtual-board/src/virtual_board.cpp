#include "ovex/vboard/virtual_board.hpp"

namespace ovex::vboard {

VirtualBoard::VirtualBoard(TestBed& bed, int port, Settings settings)
    : m_model(std::move(settings.identity)),
      m_stream(std::make_shared<CountingSource>(settings.stream)),
      m_frames(std::make_shared<FrameSource>()),
      m_sink(std::make_shared<BulkSink>()) {
    m_model.AttachSource(kDataEndpoint, m_stream);
    m_model.AttachSource(kMonitorEndpoint, m_frames);
    m_model.AttachSink(kConfigEndpoint, m_sink);
    m_usb = std::make_unique<UsbAttachment>(bed, m_model, port);
}

void VirtualBoard::RestartStream(CountingSource::Settings settings) {
    m_stream = std::make_shared<CountingSource>(settings);
    m_model.AttachSource(kDataEndpoint, m_stream);
}

}  // namespace ovex::vboard
