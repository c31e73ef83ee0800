// The subcommands of `ovex`: each takes its words and returns the process's exit code.
#pragma once

#include <span>

#include "cli.hpp"

namespace ovex::cli {

struct Command {
    const CommandText& text;
    int (*run)(Args& args);
};

extern const CommandText kListText;
int RunList(Args& args);
extern const CommandText kInfoText;
int RunInfo(Args& args);
extern const CommandText kPowerText;
int RunPower(Args& args);
extern const CommandText kScriptText;
int RunScript(Args& args);
extern const CommandText kMonitorText;
int RunMonitor(Args& args);
extern const CommandText kFlashText;
int RunFlash(Args& args);
extern const CommandText kEepromText;
int RunEeprom(Args& args);

extern const CommandText kAcquireText;
int RunAcquire(Args& args);

// Every subcommand in the order `ovex --help` lists them.
std::span<const Command> Commands();

}  // namespace ovex::cli
