#include "monitor_values.hpp"

#include <cstdio>

#include "cli.hpp"

namespace ovex::cli {

std::vector<MonitorDescription> MonitorsOf(ovexsdk_dev_ctx* ctx) {
    std::uint32_t count = 0;
    Check(ovexsdk_mon_get_count(ctx, &count), "ovexsdk_mon_get_count");
    std::vector<MonitorDescription> monitors;
    for (std::uint32_t i = 0; i < count; ++i) {
        ovexsdk_mon_info info{};
        Check(ovexsdk_mon_get_info(ctx, i, &info), "ovexsdk_mon_get_info");
        monitors.push_back({info.id, info.type, info.minimum, info.maximum});
    }
    return monitors;
}

std::string MonitorValueText(std::uint32_t type, ovexsdk_mon_value value) {
    char text[32];
    if (type == 1) {
        std::snprintf(text, sizeof text, "%d", value.i);
    } else {
        std::snprintf(text, sizeof text, "%g", static_cast<double>(value.f));
    }
    return text;
}

}  // namespace ovex::cli
