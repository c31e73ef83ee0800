#include "power_units.hpp"

#include <algorithm>
#include <cstdio>

#include "cli.hpp"

namespace ovex::cli {

std::vector<PowerUnit> PowerUnitsOf(ovexsdk_dev_ctx* ctx) {
    std::uint8_t count = 0;
    Check(ovexsdk_dev_get_unit_count(ctx, &count), "ovexsdk_dev_get_unit_count");
    std::vector<ovexsdk_dev_unit_info> infos(count);
    Check(ovexsdk_dev_get_unit_info(ctx, infos.data(), &count), "ovexsdk_dev_get_unit_info");
    std::vector<PowerUnit> units;
    for (std::uint8_t i = 0; i < count; ++i) {
        bool powered = false;
        Check(ovexsdk_dev_is_unit_powered(ctx, infos[i].index, &powered),
              "ovexsdk_dev_is_unit_powered");
        units.push_back({infos[i].index, infos[i].name, powered});
    }
    return units;
}

std::vector<std::string> NamesOf(const std::vector<PowerUnit>& units) {
    std::vector<std::string> names;
    for (const PowerUnit& unit : units) {
        names.push_back(unit.name);
    }
    return names;
}

void PrintPowerUnits(const std::vector<PowerUnit>& units, const char* indent) {
    std::size_t width = 0;
    for (const PowerUnit& unit : units) {
        width = std::max(width, unit.name.size());
    }
    for (const PowerUnit& unit : units) {
        std::printf("%s%u  %-*s  %s\n", indent, unit.index, static_cast<int>(width),
                    unit.name.c_str(), unit.powered ? "up" : "down");
    }
}

void PowerUpWholeBoard(ovexsdk_dev_ctx* ctx) {
    const ovexsdk_err_code result = ovexsdk_dev_power_up(ctx);
    if (result != OVEXSDK_ERR_BUSY) {
        Check(result, "ovexsdk_dev_power_up");
    }
}

}  // namespace ovex::cli
