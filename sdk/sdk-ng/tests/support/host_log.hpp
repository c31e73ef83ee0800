#pragma once

// What a host's log callback received, line by line, as the host sees it.

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "ovexsdk.h"

namespace ovex::sdk::testing {

struct HostLog {
    std::mutex mutex;
    std::vector<std::pair<ovexsdk_log_severity, std::string>> lines;

    static void Callback(const char* text, ovexsdk_log_severity severity, void* param) {
        auto* self = static_cast<HostLog*>(param);
        std::lock_guard lock(self->mutex);
        self->lines.emplace_back(severity, text);
    }
    bool Has(ovexsdk_log_severity severity, const std::string& text) {
        std::lock_guard lock(mutex);
        return std::find(lines.begin(), lines.end(), std::make_pair(severity, text)) != lines.end();
    }
    // The position of the first line with this text; the number of lines if there is none.
    std::size_t IndexOf(const std::string& text) {
        std::lock_guard lock(mutex);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].second == text) {
                return i;
            }
        }
        return lines.size();
    }
};

// Only the message, so that tests compare plain texts.
inline constexpr ovexsdk_log_fmt kMessageOnly{false, false, false, true};

}  // namespace ovex::sdk::testing
