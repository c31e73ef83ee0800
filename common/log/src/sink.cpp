#include "ovex/log/sink.hpp"

#include <string>

#include "detail.hpp"

namespace ovex::log {

void Sink::log(const spdlog::details::log_msg& msg) {
    const detail::PendingLine* pending = detail::CurrentLine();
    const int verbosity = pending ? pending->verbosity : detail::VerbosityOfLevel(msg.level);
    if (verbosity > Verbosity()) {
        return;
    }
    const std::string preamble = detail::FormatPreamble(msg, verbosity);
    Receive(Line{
        .verbosity = verbosity,
        .preamble = preamble,
        .indentation = {},
        .prefix = pending ? pending->prefix : std::string_view{},
        .message = std::string_view(msg.payload.data(), msg.payload.size()),
    });
}

}  // namespace ovex::log
