#pragma once

// One board on the emulated bus: the firmware model with its vendor requests and its data
// sources, attached through umockdev. The sources are the transport test set: a counting stream
// on bulk IN 0x81 (behind the chip's configuration read-back), frames on interrupt IN 0x82, a
// sink on bulk OUT 0x01.

#include <memory>
#include <optional>

#include "ovex/vboard/board_identity.hpp"
#include "ovex/vboard/boot_loader_mode.hpp"
#include "ovex/vboard/bulk_sink.hpp"
#include "ovex/vboard/counting_source.hpp"
#include "ovex/vboard/firmware_engine.hpp"
#include "ovex/vboard/firmware_model.hpp"
#include "ovex/vboard/frame_source.hpp"
#include "ovex/vboard/item_tables.hpp"
#include "ovex/vboard/test_bed.hpp"
#include "ovex/vboard/usb_attachment.hpp"

namespace ovex::vboard {

inline constexpr std::uint8_t kDataEndpoint = 0x81;
inline constexpr std::uint8_t kMonitorEndpoint = 0x82;
inline constexpr std::uint8_t kConfigEndpoint = 0x01;

class VirtualBoard {
public:
    struct Settings {
        BoardKind kind = BoardKind::kTimepix3;
        std::optional<ItemTables> tables;  // instead of the kind's: a board with custom items
        BoardIdentity identity;  // an empty product and a bcd_device of 0 come from the tables
        CountingSource::Settings stream;
        // Comes up in boot loader mode: waits for an application image, keeping the USB
        // identity above.
        std::optional<BootLoaderMode> boot_loader;
        // The board's clock follows real time (a board that no test drives: the launcher's,
        // a demo's); off, it moves only by `FirmwareEngine::AdvanceTime`. `VirtualBoardTest`
        // turns it off for every board.
        bool real_time = true;
    };

    VirtualBoard(TestBed& bed, int port, Settings settings);

    FirmwareModel& Firmware() { return m_model; }
    FirmwareEngine& Engine() { return m_engine; }
    UsbAttachment& Usb() { return *m_usb; }
    CountingSource& Stream() { return *m_stream; }
    FrameSource& Frames() { return *m_frames; }
    BulkSink& ConfigSink() { return *m_sink; }

    // Starts the data stream anew, with other settings.
    void RestartStream(CountingSource::Settings settings);

    // Queues one round of the monitor stream on the interrupt endpoint: the records of every
    // monitor as they read now, in frames of as many whole records as fit in one packet. The
    // number of frames queued (0 in boot loader mode).
    std::size_t PushMonitorRound();

private:
    std::size_t m_monitor_frame_size;  // whole records in one packet of the interrupt endpoint
    FirmwareModel m_model;
    FirmwareEngine m_engine;
    std::shared_ptr<CountingSource> m_stream;
    std::shared_ptr<FrameSource> m_frames;
    std::shared_ptr<BulkSink> m_sink;
    std::unique_ptr<UsbAttachment> m_usb;  // last: it answers the host from the parts above
};

}  // namespace ovex::vboard
