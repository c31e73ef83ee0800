#pragma once

// An S25FL128S serial NOR flash as an SPI slave: 16 MiB, 256-byte pages, 254 sectors of 64 KiB
// and 32 parameter sectors of 4 KiB, at the bottom unless TBPARM (bit 2 of CR1) puts them at the
// top. The master is full duplex: a transmit clocks the message out and keeps what the flash
// drove back, byte i with message byte i, and the receives that follow read that back.
//   0x9F RDID          the ID-CFI space, its byte k with message byte k
//   0x05 RDSR1, 0x35 RDCR   the register from the byte after the instruction on
//   0x06 WREN, 0x04 WRDI    the write-enable latch (WEL, bit 1 of SR1) set or cleared
//   0x01 WRR SR1 CR1   writes CR1 (TBPARM can only be set); needs WEL
//   0x12 4PP, 0x34 4QPP address(4) data   programs within the address's page, wrapping at its
//                      end; 4QPP only with QUAD (bit 1 of CR1); needs WEL
//   0xDC 4SE address(4)    erases the 64 KiB the address lies in, parameter sectors included;
//                      needs WEL
//   0x0C 4FAST_READ address(4) [dummy]  the data from the address on, after one dummy byte
//                      unless the latency code (bits 7 and 6 of CR1) is 3
// Program and erase finish at once and clear WEL; the busy flag (WIP, bit 0 of SR1) then reads
// set for as many status reads as `SlowDown` asks. Other instructions drive nothing (0xFF).

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "nor_array.hpp"

namespace ovex::vboard {

class SpiFlash {
public:
    static constexpr std::uint32_t kSize = 16 * 1024 * 1024;

    void Transmit(std::span<const std::uint8_t> bytes);
    std::vector<std::uint8_t> Receive(std::size_t count);
    // Chip select dropped: what the last transmit drove is gone; cells and registers stay.
    void Deselect() { m_driven.clear(); }

    // The next programs and erases keep WIP set for this many status reads each; a fault of the
    // chip for tests (SIZE_MAX: they never finish). 0 also ends a program or erase under way.
    void SlowDown(std::size_t busy_reads) {
        m_busy_reads = busy_reads;
        if (busy_reads == 0) {
            m_busy_left = 0;
        }
    }

private:
    static std::vector<std::uint8_t> IdCfi();
    std::uint8_t Status();
    void Program(std::uint32_t address, std::span<const std::uint8_t> data);
    void Finished();

    NorArray m_cells{kSize};
    std::uint8_t m_cr1 = 0;
    bool m_write_enabled = false;
    std::size_t m_busy_reads = 0;
    std::size_t m_busy_left = 0;
    std::vector<std::uint8_t> m_driven;
    std::size_t m_received = 0;
};

}  // namespace ovex::vboard
