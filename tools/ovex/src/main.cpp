// `ovex`: the command-line face of the library. `ovex COMMAND [ARGS...]`; `--help` anywhere.
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "commands.hpp"

namespace ovex::cli {
namespace {

constexpr std::string_view kExitCodes =
    "Exit codes:\n"
    "  0    done\n"
    "  1    the library or the board reported a failure\n"
    "  2    a command line that can't be run\n"
    "  3    no board at the locator, or it went away\n"
    "  4    the board is busy: in use, or already in the state asked for\n"
    "  5    a file could not be read or written\n"
    "  130  Ctrl-C ended a command early; what an acquisition wrote is complete\n";

void PrintOverview(std::FILE* out) {
    const ovexsdk_version* version = ovexsdk_version_get();
    std::fprintf(out, "ovex %u.%u.%u: boards of Timepix detectors from the command line\n\n",
                 version->major, version->minor, version->patch);
    std::fprintf(out, "usage: ovex COMMAND [ARGS...]   (ovex COMMAND --help for its page)\n\n");
    std::fprintf(out, "Commands:\n");
    for (const Command& command : Commands()) {
        std::fprintf(out, "  %-9.*s %.*s\n", static_cast<int>(command.text.name.size()),
                     command.text.name.data(), static_cast<int>(command.text.summary.size()),
                     command.text.summary.data());
    }
    std::fprintf(out,
                 "\nA LOCATOR is usb:ix:N or usb:sn:SERIAL as `ovex list` prints them, or just "
                 "N or SERIAL.\nEvery command takes -v (the library's information lines), -vv "
                 "(its debug lines too)\nand --help.\n\n%.*s",
                 static_cast<int>(kExitCodes.size()), kExitCodes.data());
}

void PrintUsage(std::FILE* out, const CommandText& text) {
    std::fprintf(out, "usage: ovex %.*s%s%.*s\n", static_cast<int>(text.name.size()),
                 text.name.data(), text.usage.empty() ? "" : " ",
                 static_cast<int>(text.usage.size()), text.usage.data());
}

int Run(const Command& command, std::vector<std::string> words) {
    const CommandText& text = command.text;
    try {
        Args args(text, std::move(words));
        if (args.HelpAsked()) {
            PrintUsage(stdout, text);
            std::printf("\n%.*s.\n\n%.*s", static_cast<int>(text.summary.size()),
                        text.summary.data(), static_cast<int>(text.help.size()), text.help.data());
            return kExitOk;
        }
        return command.run(args);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "ovex %.*s: %s\n", static_cast<int>(text.name.size()),
                     text.name.data(), error.what());
        PrintUsage(stderr, text);
        return kExitUsage;
    } catch (const CommandError& error) {
        std::fprintf(stderr, "ovex %.*s: %s\n", static_cast<int>(text.name.size()),
                     text.name.data(), error.what());
        return error.Code();
    }
}

}  // namespace
}  // namespace ovex::cli

int main(int argc, char** argv) {
    using namespace ovex::cli;
    const std::string_view name = argc > 1 ? argv[1] : "";
    if (name.empty() || name == "--help" || name == "-h" || name == "help") {
        PrintOverview(name.empty() ? stderr : stdout);
        return name.empty() ? kExitUsage : kExitOk;
    }
    for (const Command& command : Commands()) {
        if (command.text.name == name) {
            return Run(command, std::vector<std::string>(argv + 2, argv + argc));
        }
    }
    std::fprintf(stderr, "ovex: unknown command '%s'; `ovex --help` lists them\n", argv[1]);
    return kExitUsage;
}
