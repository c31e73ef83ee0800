// `ovex script`: runs a Lua file on a board in the library's interpreter.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "commands.hpp"
#include "interrupt.hpp"
#include "session.hpp"

namespace ovex::cli {

const CommandText kScriptText = {
    "script", "LOCATOR FILE", "run a Lua script on a board",
    "Opens the board and runs FILE (- reads standard input) in the library's Lua interpreter,\n"
    "where the open board is the global `device`. The libraries base, package, string and debug\n"
    "are open, with the library's own: Log (Log.info(text) and the like go to the library's log,\n"
    "which -v shows), Std (Std.sleep) and Usb.VendorCmd (the board's commands, states, monitors\n"
    "and versions). print() writes to standard output. Scripts are trusted code.\n"
    "\n"
    "The command powers nothing by itself; a script may, and what it leaves powered stays so.\n"
    "\n"
    "Exit codes: 0 when the script ran to its end; 1 when it failed (a Lua error or error();\n"
    "the library's trace is on standard error); 5 when FILE can't be read; 130 when Ctrl-C\n"
    "stopped it (Lua code stops within a few thousand instructions, Std.sleep at once, a\n"
    "request to the board once it is answered).\n"
    "\n"
    "Examples:\n"
    "  ovex script 0 setup.lua\n"
    "  echo 'print(Usb.VendorCmd.Versions.new(device):get_value(\"FX3_FW\"))' | ovex script 0 -\n"};

int RunScript(Args& args) {
    const std::string locator = LocatorOf(args.Positional("LOCATOR"));
    const std::string file = args.Positional("FILE");
    args.Finish();
    const std::string text = ReadTextFile(file);

    Session session(locator, args.Verbosity());
    session.Open();
    ovexsdk_dev_ctx* ctx = session.Ctx();
    const InterruptWatch interrupt;
    ovexsdk_err_code result = OVEXSDK_OK;
    {
        // Stops the script from its own thread at Ctrl-C; a signal can't wake it, so it looks
        // ten times a second until the script ends.
        const std::jthread stopper([ctx, &interrupt](std::stop_token finished) {
            std::mutex mutex;
            std::condition_variable_any wake;
            std::unique_lock lock(mutex);
            while (!finished.stop_requested()) {
                wake.wait_for(lock, finished, std::chrono::milliseconds(100), [] { return false; });
                if (interrupt.Requested()) {
                    ovexsdk_script_stop(ctx);
                    return;
                }
            }
        });
        result = ovexsdk_script_execute(ctx, text.c_str());
    }
    std::fflush(stdout);
    if (result != OVEXSDK_OK && interrupt.Requested()) {
        throw CommandError(kExitInterrupted, "stopped by Ctrl-C");
    }
    if (result != OVEXSDK_OK) {
        throw CommandError(ExitCodeOf(result),
                           "the script failed (" + std::string(ResultName(result)) + ")");
    }
    return kExitOk;
}

}  // namespace ovex::cli
