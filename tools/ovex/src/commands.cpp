#include "commands.hpp"

namespace ovex::cli {

std::span<const Command> Commands() {
    // One command a line, so that adding one touches one line.
    // clang-format off
    static const Command commands[] = {
        {kListText, RunList},
        {kInfoText, RunInfo},
        {kPowerText, RunPower},
        {kScriptText, RunScript},
        {kMonitorText, RunMonitor},
        {kAcquireText, RunAcquire},
        {kFlashText, RunFlash},
        {kEepromText, RunEeprom},
    };
    // clang-format on
    return commands;
}

}  // namespace ovex::cli
