// A board's monitors: what each is and how its value reads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ovexsdk.h"

namespace ovex::cli {

struct MonitorDescription {
    std::string name;
    std::uint32_t type;  // 1 integer, 2 float, as ovexsdk_mon_info has it
    ovexsdk_mon_value minimum;
    ovexsdk_mon_value maximum;
};

// Every monitor of an open board, in the board's order: the index is the library's.
std::vector<MonitorDescription> MonitorsOf(ovexsdk_dev_ctx* ctx);

// The value in the member the type names: "3", "1.0125".
std::string MonitorValueText(std::uint32_t type, ovexsdk_mon_value value);

}  // namespace ovex::cli
