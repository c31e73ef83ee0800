// `ovex info`: everything the library tells about one board, section by section.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.hpp"
#include "memories.hpp"
#include "monitor_values.hpp"
#include "power_units.hpp"
#include "session.hpp"

namespace ovex::cli {

const CommandText kInfoText = {
    "info", "LOCATOR", "show a board: identity, firmware, power, chips, memories, monitors",
    "Opens the board and prints, section by section:\n"
    "  board        serial number, product, locator, USB path, the library's version\n"
    "  firmware     the board's version items (FX3_FW, the FPGA's, ...), read by a small Lua\n"
    "               script, since the library's C interface has no call for them\n"
    "  power units  each unit's index, name and state (up or down)\n"
    "  chips        id, size, modes, polarities, settings and threshold; only while the\n"
    "               frontend is up, since a board has no chips for the library before\n"
    "  bias, temperature\n"
    "               each controller's range, the value set and the value measured\n"
    "  EEPROMs, flashes\n"
    "               as `ovex eeprom list` and `ovex flash list` show them; flashes appear\n"
    "               once the units behind them are up\n"
    "  monitors     name, value as read now (- when the board gives none) and range\n"
    "It powers nothing and changes nothing; a value that can't be read shows as -.\n"
    "\n"
    "Examples:\n"
    "  ovex info 0\n"
    "  ovex info OVX00001\n"};

namespace {

constexpr int kLabelWidth = 13;

const char* ModeName(ovexsdk_chip_mode mode) {
    switch (mode) {
        case Unknown:
            return "Unknown";
        case EvCount8Bit:
            return "EvCount8Bit";
        case EvCount10Bit:
            return "EvCount10Bit";
        case EvCount14Bit:
            return "EvCount14Bit";
        case IToT10Bit:
            return "IToT10Bit";
        case IToT14Bit:
            return "IToT14Bit";
        case ToAToTDD:
            return "ToAToTDD";
        case ToAToTFBZS:
            return "ToAToTFBZS";
        case IToTEvCountFBZS:
            return "IToTEvCountFBZS";
        case OVEXSDK_CHIP_MODE_MAX_ENUM:
            break;
    }
    return "?";
}

void PrintField(const char* label, const std::string& value) {
    std::printf("  %-*s %s\n", kLabelWidth, label, value.c_str());
}

std::string Number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

// What a getter of the library reads, or "-" when it reads nothing.
template <typename Value, typename Getter>
std::string Reading(Getter get) {
    Value value{};
    return get(&value) == OVEXSDK_OK ? Number(static_cast<double>(value)) : "-";
}

void PrintIdentity(ovexsdk_dev_ctx* ctx) {
    ovexsdk_enum_info info{};
    Check(ovexsdk_dev_get_info(ctx, &info), "ovexsdk_dev_get_info");
    const ovexsdk_version* version = ovexsdk_version_get();
    std::printf("board\n");
    PrintField("serial", info.serial_number);
    PrintField("product", info.product);
    PrintField("locator", info.connection_string);
    PrintField("USB path", info.instance_path);
    PrintField("library", std::to_string(version->major) + "." + std::to_string(version->minor) +
                              "." + std::to_string(version->patch));
}

// The versions live in the board's item table, which only scripts reach; the script prints
// them in the same columns as the rest.
void PrintFirmware(ovexsdk_dev_ctx* ctx) {
    std::printf("firmware\n");
    std::fflush(stdout);
    const std::string script =
        "local versions = Usb.VendorCmd.Versions.new(device)\n"
        "for _, name in ipairs(versions:names()) do\n"
        "  local value = versions:get_value(name)\n"
        "  print(string.format('  %-" +
        std::to_string(kLabelWidth) +
        "s %s', name, type(value) == 'string' and value or '-'))\n"
        "end\n";
    if (ovexsdk_script_execute(ctx, script.c_str()) != OVEXSDK_OK) {
        PrintField("versions", "-");
    }
    std::fflush(stdout);
}

void PrintChips(ovexsdk_dev_ctx* ctx) {
    std::uint8_t count = 0;
    Check(ovexsdk_chip_get_count(ctx, &count), "ovexsdk_chip_get_count");
    if (count == 0) {
        std::printf("chips: power the frontend up to see them\n");
        return;
    }
    std::vector<ovexsdk_chip_info> infos(count);
    Check(ovexsdk_chip_get_info(ctx, infos.data(), &count), "ovexsdk_chip_get_info");
    std::vector<ovexsdk_chip_settings> settings(count);
    std::uint8_t settings_count = count;
    const bool have_settings =
        ovexsdk_chip_get_settings(ctx, settings.data(), &settings_count) == OVEXSDK_OK;
    std::vector<ovexsdk_chip_thld_info> thresholds(count);
    std::uint8_t threshold_count = count;
    const bool have_thresholds =
        ovexsdk_chip_get_thld_info(ctx, thresholds.data(), &threshold_count) == OVEXSDK_OK;

    std::printf("chips (%u)\n", count);
    for (std::uint8_t chip = 0; chip < count; ++chip) {
        const ovexsdk_chip_info& info = infos[chip];
        std::printf("  %u  %s  %u x %u pixels\n", chip, info.chip_id, info.width, info.height);
        std::string modes;
        for (const ovexsdk_chip_mode mode : info.modes) {
            if (mode != Unknown) {
                modes += (modes.empty() ? "" : ", ") + std::string(ModeName(mode));
            }
        }
        PrintField("   modes", modes);
        std::string polarities;
        for (const ovexsdk_chip_polarity polarity : info.polarities) {
            if (polarity != 0) {
                polarities += (polarities.empty() ? "" : ", ") + std::to_string(polarity);
            }
        }
        PrintField("   polarities", polarities);
        PrintField("   settings", have_settings && chip < settings_count
                                      ? "polarity " + std::to_string(settings[chip].polarity) +
                                            ", mode " + ModeName(settings[chip].mode)
                                      : "-");
        const std::string now =
            Reading<float>([&](float* kev) { return ovexsdk_chip_get_thld(ctx, chip, kev); }) +
            " keV (raw " + Reading<std::uint32_t>([&](std::uint32_t* raw) {
                return ovexsdk_chip_get_raw_thld(ctx, chip, raw);
            }) +
            ")";
        if (have_thresholds && chip < threshold_count) {
            const ovexsdk_chip_thld_info& thld = thresholds[chip];
            PrintField("   threshold",
                       now + "; takes " + Number(thld.energy_low) + " .. " +
                           Number(thld.energy_high) + " keV, raw " + std::to_string(thld.raw_min) +
                           " .. " + std::to_string(thld.raw_max) +
                           (thld.calibrated != 0 ? ", calibrated" : ", not calibrated"));
        } else {
            PrintField("   threshold", now);
        }
    }
}

void PrintBias(ovexsdk_dev_ctx* ctx) {
    std::uint8_t count = 0;
    Check(ovexsdk_bias_get_count(ctx, &count), "ovexsdk_bias_get_count");
    std::vector<ovexsdk_bias_info> infos(count);
    Check(ovexsdk_bias_get_info(ctx, infos.data(), &count), "ovexsdk_bias_get_info");
    std::printf("bias supplies\n");
    for (std::uint8_t id = 0; id < count; ++id) {
        const std::string desired =
            Reading<float>([&](float* value) { return ovexsdk_bias_get_desired(ctx, id, value); });
        const std::string actual =
            Reading<float>([&](float* value) { return ovexsdk_bias_get_actual(ctx, id, value); });
        std::printf("  %u  %g .. %g V  set %s V  measured %s V\n", id,
                    static_cast<double>(infos[id].minimum), static_cast<double>(infos[id].maximum),
                    desired.c_str(), actual.c_str());
    }
}

void PrintTemperature(ovexsdk_dev_ctx* ctx) {
    std::uint8_t count = 0;
    Check(ovexsdk_temp_get_count(ctx, &count), "ovexsdk_temp_get_count");
    std::vector<ovexsdk_temp_ctrl_info> infos(count);
    std::uint64_t filled = count;
    Check(ovexsdk_temp_get_info(ctx, infos.data(), &filled), "ovexsdk_temp_get_info");
    std::printf("temperature controllers\n");
    for (std::uint8_t id = 0; id < filled; ++id) {
        const char* unit = infos[id].unit == 2 ? "%" : "C";
        const std::string desired =
            Reading<float>([&](float* value) { return ovexsdk_temp_get_desired(ctx, id, value); });
        const std::string actual =
            Reading<float>([&](float* value) { return ovexsdk_temp_get_actual(ctx, id, value); });
        std::printf("  %u  %g .. %g %s  set %s  measured %s\n", id,
                    static_cast<double>(infos[id].minimum), static_cast<double>(infos[id].maximum),
                    unit, desired.c_str(), actual.c_str());
    }
}

void PrintMonitors(ovexsdk_dev_ctx* ctx) {
    const std::vector<MonitorDescription> monitors = MonitorsOf(ctx);
    std::size_t width = kLabelWidth;
    for (const MonitorDescription& monitor : monitors) {
        width = std::max(width, monitor.name.size());
    }
    std::printf("monitors\n");
    for (std::uint32_t i = 0; i < monitors.size(); ++i) {
        const MonitorDescription& monitor = monitors[i];
        ovexsdk_mon_value value{};
        const std::string now = ovexsdk_mon_get_value(ctx, i, &value) == OVEXSDK_OK
                                    ? MonitorValueText(monitor.type, value)
                                    : "-";
        std::printf("  %-*s %-12s %s .. %s\n", static_cast<int>(width), monitor.name.c_str(),
                    now.c_str(), MonitorValueText(monitor.type, monitor.minimum).c_str(),
                    MonitorValueText(monitor.type, monitor.maximum).c_str());
    }
}

}  // namespace

int RunInfo(Args& args) {
    const std::string locator = LocatorOf(args.Positional("LOCATOR"));
    args.Finish();
    Session session(locator, args.Verbosity());
    session.Open();
    ovexsdk_dev_ctx* ctx = session.Ctx();
    PrintIdentity(ctx);
    PrintFirmware(ctx);
    std::printf("power units\n");
    PrintPowerUnits(PowerUnitsOf(ctx), "  ");
    PrintChips(ctx);
    PrintBias(ctx);
    PrintTemperature(ctx);
    std::printf("EEPROMs\n");
    PrintMemories(MemoriesOf(ctx, MemoryKind::kEeprom), MemoryKind::kEeprom, "  ");
    std::printf("flashes\n");
    PrintMemories(MemoriesOf(ctx, MemoryKind::kFlash), MemoryKind::kFlash, "  ");
    PrintMonitors(ctx);
    return kExitOk;
}

}  // namespace ovex::cli
