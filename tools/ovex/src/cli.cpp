#include "cli.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace ovex::cli {

std::string_view ResultName(ovexsdk_err_code code) {
    switch (code) {
        case OVEXSDK_OK:
            return "OVEXSDK_OK";
        case OVEXSDK_ERR_NO_MEMORY:
            return "OVEXSDK_ERR_NO_MEMORY";
        case OVEXSDK_ERR_FAILED:
            return "OVEXSDK_ERR_FAILED";
        case OVEXSDK_ERR_BUSY:
            return "OVEXSDK_ERR_BUSY";
        case OVEXSDK_ERR_NO_DEVICE:
            return "OVEXSDK_ERR_NO_DEVICE";
        case OVEXSDK_ERR_INVALID:
            return "OVEXSDK_ERR_INVALID";
        case OVEXSDK_ERR_UNAVAILABLE:
            return "OVEXSDK_ERR_UNAVAILABLE";
    }
    return "unknown result";
}

ExitCode ExitCodeOf(ovexsdk_err_code code) {
    switch (code) {
        case OVEXSDK_OK:
            return kExitOk;
        case OVEXSDK_ERR_NO_DEVICE:
            return kExitNoDevice;
        case OVEXSDK_ERR_BUSY:
            return kExitBusy;
        default:
            return kExitFailed;
    }
}

void Check(ovexsdk_err_code code, std::string_view call) {
    if (code != OVEXSDK_OK) {
        throw CommandError(ExitCodeOf(code), std::string(call) +
                                                 " failed: " + std::string(ResultName(code)) +
                                                 " (" + std::to_string(code) + ")");
    }
}

Args::Args(const CommandText& text, std::vector<std::string> words)
    : m_text(text), m_words(std::move(words)) {
    std::erase_if(m_words, [this](const std::string& word) {
        if (word == "--help" || word == "-h") {
            m_help = true;
        } else if (word == "--verbose" || word == "-v") {
            m_verbosity = std::max(m_verbosity, 1);
        } else if (word == "-vv") {
            m_verbosity = 2;
        } else {
            return false;
        }
        return true;
    });
}

bool Args::Flag(std::string_view name) {
    const auto found = std::find(m_words.begin(), m_words.end(), name);
    if (found == m_words.end()) {
        return false;
    }
    m_words.erase(found);
    return true;
}

std::optional<std::string> Args::Value(std::string_view name) {
    const auto found = std::find(m_words.begin(), m_words.end(), name);
    if (found == m_words.end()) {
        return std::nullopt;
    }
    if (found + 1 == m_words.end()) {
        throw UsageError(std::string(name) + " needs a value");
    }
    std::string value = *(found + 1);
    m_words.erase(found, found + 2);
    if (std::find(m_words.begin(), m_words.end(), name) != m_words.end()) {
        throw UsageError(std::string(name) + " is given twice");
    }
    return value;
}

std::optional<double> Args::Number(std::string_view name, double min, double max) {
    const auto text = Value(name);
    if (!text) {
        return std::nullopt;
    }
    char* end = nullptr;
    const double value = std::strtod(text->c_str(), &end);
    if (text->empty() || *end != '\0' || !std::isfinite(value) || value < min || value > max) {
        char range[64];
        std::snprintf(range, sizeof range, " takes a number from %g to %g, not '", min, max);
        throw UsageError(std::string(name) + range + *text + "'");
    }
    return value;
}

std::optional<std::uint64_t> Args::Count(std::string_view name, std::uint64_t min,
                                         std::uint64_t max) {
    const auto text = Value(name);
    if (!text) {
        return std::nullopt;
    }
    return ParseCount(*text, name, min, max);
}

std::string Args::Positional(std::string_view what) {
    auto value = OptionalPositional();
    if (!value) {
        throw UsageError("missing " + std::string(what));
    }
    return *value;
}

std::optional<std::string> Args::OptionalPositional() {
    const auto found = std::find_if(m_words.begin(), m_words.end(), [](const std::string& word) {
        return word.size() < 2 || word[0] != '-' || word[1] != '-';
    });
    if (found == m_words.end()) {
        return std::nullopt;
    }
    std::string value = *found;
    m_words.erase(found);
    return value;
}

void Args::Finish() {
    if (m_words.empty()) {
        return;
    }
    const std::string& first = m_words.front();
    if (first.size() > 1 && first[0] == '-') {
        throw UsageError("unknown option '" + first + "'");
    }
    throw UsageError("unexpected argument '" + first + "'");
}

std::uint64_t ParseCount(std::string_view text, std::string_view what, std::uint64_t min,
                         std::uint64_t max) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < min ||
        value > max) {
        throw UsageError(std::string(what) + " takes a whole number from " + std::to_string(min) +
                         " to " + std::to_string(max) + ", not '" + std::string(text) + "'");
    }
    return value;
}

std::string ReadTextFile(const std::string& path) {
    std::FILE* in = path == "-" ? stdin : std::fopen(path.c_str(), "rb");
    if (in == nullptr) {
        throw CommandError(kExitFile, "cannot read " + path + ": " + std::strerror(errno));
    }
    std::string text;
    char block[65536];
    std::size_t read = 0;
    while ((read = std::fread(block, 1, sizeof block, in)) > 0) {
        text.append(block, read);
    }
    const int error = std::ferror(in) != 0 ? errno : 0;
    if (in != stdin) {
        std::fclose(in);
    }
    if (error != 0) {
        throw CommandError(kExitFile, "cannot read " + path + ": " + std::strerror(error));
    }
    if (text.find('\0') != std::string::npos) {
        throw CommandError(kExitFile, path + " is no text file: it holds a zero byte");
    }
    return text;
}

std::string LocatorOf(std::string_view text) {
    if (text.starts_with("usb:")) {
        return std::string(text);
    }
    const bool index = !text.empty() && std::all_of(text.begin(), text.end(),
                                                    [](char c) { return c >= '0' && c <= '9'; });
    return (index ? "usb:ix:" : "usb:sn:") + std::string(text);
}

}  // namespace ovex::cli
