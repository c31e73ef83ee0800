#pragma once

// A host's session with one virtual board of a given kind, for the power units: the journal of
// what the library's scripts ask of the board, the board's refusals placed on its entries, and
// the script lines of the host log.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "board_journal.hpp"
#include "board_session.hpp"

namespace ovex::sdk::testing {

using Lines = std::vector<std::string>;

// The last `count` lines, or all of them when there are fewer.
inline Lines Tail(const Lines& lines, std::size_t count) {
    return Lines(lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())),
                 lines.end());
}

// The firmware's refusal "failed for no more specific reason", and its text in the log.
inline constexpr std::uint32_t kRefusal = vboard::kFailure;
inline const std::string kReason = "firmware: failure due to a non-specific system error";

class PowerSession : public BoardSession {
protected:
    void TearDown() override {
        if (m_journal) {
            ovex::log::RemoveSink(m_journal);
        }
        BoardSession::TearDown();
    }

    // Adds a board of `kind` and opens it; the journal starts after the open.
    ovexsdk_err_code OpenKind(vboard::BoardKind kind) {
        vboard::VirtualBoard::Settings settings;
        settings.kind = kind;
        return OpenBoard(std::move(settings));
    }

    ovexsdk_err_code OpenBoard(vboard::VirtualBoard::Settings settings) {
        const auto kind = settings.kind;
        const auto result = AddAndOpen(std::move(settings));
        m_journal = std::make_shared<BoardJournal>(vboard::TablesOf(kind));
        ovex::log::AddSink(m_journal, ovex::log::kDebug);
        void* state = nullptr;
        EXPECT_EQ(ovexsdk_get_script_state(&m_ctx, &state), OVEXSDK_OK);
        lua::core::SetSleeper(static_cast<lua_State*>(state),
                              [this](std::chrono::duration<double> wait) {
                                  m_sleeps.push_back(wait.count());
                                  m_journal->Sleep(wait.count());
                              });
        return result;
    }

    // The board refuses the request of `entry` the `occurrence`th time, and `count - 1` more
    // like it after it, with `word` as its reason.
    void RefuseAt(const std::string& entry, int occurrence = 1, int count = 1,
                  std::uint32_t word = kRefusal) {
        m_journal->At(entry, occurrence, [this, count, word](const vboard::RequestMatch& request) {
            Board().Firmware().StallNext(request, count, word);
        });
    }

    Lines Journal() const { return m_journal->Entries(); }
    void ClearJournal() { m_journal->Clear(); }

    vboard::FirmwareEngine& Engine() { return Board().Engine(); }

    bool UnitPowered(std::uint8_t unit) {
        bool powered = false;
        EXPECT_EQ(ovexsdk_dev_is_unit_powered(&m_ctx, unit, &powered), OVEXSDK_OK);
        return powered;
    }
    bool DevicePowered() {
        bool powered = true;
        EXPECT_EQ(ovexsdk_dev_is_powered(&m_ctx, &powered), OVEXSDK_OK);
        return powered;
    }

    // The lines of information, warnings and errors that the test's thread logged so far.
    Lines ScriptLines() const {
        Lines lines;
        for (const auto& line : m_log.Messages()) {
            if (line.verbosity <= ovex::log::kInfo) {
                lines.push_back(line.message);
            }
        }
        return lines;
    }

    std::shared_ptr<BoardJournal> m_journal;
};

}  // namespace ovex::sdk::testing
