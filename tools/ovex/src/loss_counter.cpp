#include "loss_counter.hpp"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace ovex::cli {
namespace {

constexpr std::string_view kDropped = "dropped";

// Where "dropped" first stands in the line, in either case; npos when it doesn't.
std::size_t FindDropped(std::string_view text) {
    const auto found = std::search(text.begin(), text.end(), kDropped.begin(), kDropped.end(),
                                   [](char a, char b) { return std::tolower(a) == b; });
    return found == text.end() ? std::string_view::npos : found - text.begin();
}

}  // namespace

void LossCounter::OnLine(std::string_view text, ovexsdk_log_severity severity) {
    // Only warnings and errors report losses; a debug line may just mention the word.
    if (severity > OVEXSDK_LOG_WARNING) {
        return;
    }
    const std::size_t at = FindDropped(text);
    if (at == std::string_view::npos) {
        return;
    }
    m_reports.fetch_add(1, std::memory_order_relaxed);
    // The first number after the word is the bytes the report names.
    const std::string_view rest = text.substr(at + kDropped.size());
    const auto digit = std::find_if(rest.begin(), rest.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c));
    });
    std::uint64_t bytes = 0;
    if (digit != rest.end()) {
        std::from_chars(&*digit, rest.data() + rest.size(), bytes);
        m_bytes.fetch_add(bytes, std::memory_order_relaxed);
    }
}

}  // namespace ovex::cli
