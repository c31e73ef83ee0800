// The option core every subcommand shares: a command's words, its flags and values, the exit
// codes a script can rely on, and the errors that end a command.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ovexsdk.h"

namespace ovex::cli {

// What `ovex` returns; `ovex --help` lists them.
enum ExitCode : int {
    kExitOk = 0,
    kExitFailed = 1,        // the library or the board reported a failure
    kExitUsage = 2,         // a command line the tool can't run
    kExitNoDevice = 3,      // no board at the locator, or it went away
    kExitBusy = 4,          // the board is in use, or already in the state asked for
    kExitFile = 5,          // a file could not be read or written
    kExitInterrupted = 130  // Ctrl-C ended a command early; an acquisition's files are complete
};

// A command line the tool can't run: the message, then the command's usage, exit code 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A failure that ends a command with its exit code after the message.
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode code, const std::string& message)
        : std::runtime_error(message), m_code(code) {}
    ExitCode Code() const { return m_code; }

private:
    ExitCode m_code;
};

// The name of a result code, "OVEXSDK_ERR_BUSY", and the exit code it maps to.
std::string_view ResultName(ovexsdk_err_code code);
ExitCode ExitCodeOf(ovexsdk_err_code code);

// Throws a CommandError naming the call when the result is not OVEXSDK_OK.
void Check(ovexsdk_err_code code, std::string_view call);

// One subcommand's text: its usage line and the page `--help` prints.
struct CommandText {
    std::string_view name;
    std::string_view usage;    // the arguments after "ovex NAME"
    std::string_view summary;  // one line for `ovex --help`
    std::string_view help;     // the options, one per line
};

// The words after the subcommand. Options are taken by name (in any place); what remains after
// all of them has to be the positional arguments, taken in order. `--verbose` and `--help` are
// every command's own and are taken at construction.
class Args {
public:
    Args(const CommandText& text, std::vector<std::string> words);

    bool HelpAsked() const { return m_help; }
    // 0 errors only, 1 warnings and information (`-v`), 2 debug too (`-vv`).
    int Verbosity() const { return m_verbosity; }

    bool Flag(std::string_view name);
    std::optional<std::string> Value(std::string_view name);
    std::optional<double> Number(std::string_view name, double min, double max);
    std::optional<std::uint64_t> Count(std::string_view name, std::uint64_t min, std::uint64_t max);

    std::string Positional(std::string_view what);
    std::optional<std::string> OptionalPositional();
    // Refuses whatever no one took: an unknown option, or a word too many.
    void Finish();

    const CommandText& Text() const { return m_text; }

private:
    const CommandText& m_text;
    std::vector<std::string> m_words;
    bool m_help = false;
    int m_verbosity = 0;
};

// Parses a whole number in [min, max], or throws a UsageError naming `what`.
std::uint64_t ParseCount(std::string_view text, std::string_view what, std::uint64_t min,
                         std::uint64_t max);

// The whole text of a file ("-": standard input), which the library takes as a C string: one
// that can't be read, or that holds a zero byte, ends the command with kExitFile.
std::string ReadTextFile(const std::string& path);

// "usb:ix:N" and "usb:sn:SERIAL" stand as they are; a bare number is an index, anything else a
// serial number.
std::string LocatorOf(std::string_view text);

}  // namespace ovex::cli
