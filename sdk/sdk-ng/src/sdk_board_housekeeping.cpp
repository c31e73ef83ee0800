#include "sdk_board_housekeeping.hpp"

namespace ovex::sdk {

namespace {

// Every monitor of the OvexBoard chip boards is a float.
constexpr MonitorRow kTpx3Monitors[] = {
    {"FPGA_TEMP", 2},      {"VCC_INT", 2},        {"VCC_AUX", 2},        {"VCC_BRAM", 2},
    {"VP_VN", 2},          {"I_LOAD_DC_1V0", 2},  {"I_LOAD_DC_1V8", 2},  {"I_LOAD_DC_2V5", 2},
    {"I_LOAD_DC_3V3", 2},  {"TSENS_TEMP", 2},     {"TPX_DAC_OUT", 2},    {"MONITOR_5V", 2},
    {"U_BIAS", 2},         {"I_BIAS", 2},         {"I_PELT", 2},         {"U_PELT", 2},
    {"PELTIER_OUTPUT", 2}, {"PELTIER_P_TERM", 2}, {"PELTIER_I_TERM", 2}, {"PELTIER_D_TERM", 2},
    {"PELTIER_I_ERR", 2},  {"PG_1V8", 2},         {"PG_VDD", 2},         {"PG_VDDA", 2},
    {"PG_5V", 2},          {"PG_FE_5V", 2}};

constexpr MonitorRow kTpx2CbMonitors[] = {
    {"FPGA_TEMP", 2},      {"VCC_INT", 2},        {"VCC_AUX", 2},        {"VCC_BRAM", 2},
    {"VP_VN", 2},          {"I_LOAD_DC_1V0", 2},  {"I_LOAD_DC_1V8", 2},  {"I_LOAD_DC_2V5", 2},
    {"I_LOAD_DC_3V3", 2},  {"TSENS_TEMP", 2},     {"TPX_DAC_OUT", 2},    {"MONITOR_5V", 2},
    {"U_BIAS", 2},         {"I_BIAS", 2},         {"I_PELT", 2},         {"U_PELT", 2},
    {"PELTIER_OUTPUT", 2}, {"PELTIER_P_TERM", 2}, {"PELTIER_I_TERM", 2}, {"PELTIER_D_TERM", 2},
    {"PELTIER_I_ERR", 2},  {"PG_1V2_A", 2},       {"PG_1V2_D", 2},       {"PG_1V8_D", 2}};

constexpr MonitorRow kTpx4CbMonitors[] = {{"FPGA_TEMP", 2},
                                          {"VCC_INT", 2},
                                          {"VCC_AUX", 2},
                                          {"VCC_BRAM", 2},
                                          {"VP_VN", 2},
                                          {"I_LOAD_DC_1V0", 2},
                                          {"I_LOAD_DC_1V8", 2},
                                          {"I_LOAD_DC_2V5", 2},
                                          {"I_LOAD_DC_3V3", 2},
                                          {"TSENS_TEMP", 2},
                                          {"TPX_DAC_OUT_TOP", 2},
                                          {"TPX_DAC_OUT_BOT", 2},
                                          {"U_BIAS", 2},
                                          {"I_BIAS", 2},
                                          {"I_PELT", 2},
                                          {"U_PELT", 2},
                                          {"PELTIER_OUTPUT", 2},
                                          {"PELTIER_P_TERM", 2},
                                          {"PELTIER_I_TERM", 2},
                                          {"PELTIER_D_TERM", 2},
                                          {"PELTIER_I_ERR", 2},
                                          {"TPX_CURRENT_DIGITAL", 2},
                                          {"TPX_CURRENT_ANALOG", 2},
                                          {"PG_1V8A", 2},
                                          {"PG_1V8D", 2},
                                          {"PG_PLL", 2},
                                          {"PG_PST", 2},
                                          {"PG_VDD", 2},
                                          {"PG_VDDA", 2},
                                          {"PG_PELT", 2},
                                          {"PG_GWT", 2},
                                          {"PG_5V", 2}};

// The NoBE has monitors of both types and two FPGAs.
constexpr MonitorRow kNobeMonitors[] = {
    {"FPGA_TEMP_0", 2},   {"VCC_INT_0", 2},       {"VCC_AUX_0", 2},     {"VCC_BRAM_0", 2},
    {"V_MON", 2},         {"U_BIAS_PRE_FUSE", 2}, {"U_BIAS", 2},        {"I_PELT1", 2},
    {"U_PELT1", 2},       {"I_PELT2", 2},         {"U_PELT2", 2},       {"FPGA_TEMP_1", 2},
    {"VCC_INT_1", 2},     {"VCC_AUX_1", 2},       {"VCC_BRAM_1", 2},    {"TPX_BIAS_U", 2},
    {"I_LOAD_DC_1V0", 2}, {"I_LOAD_DC_1V8", 2},   {"I_LOAD_DC_2V5", 2}, {"I_LOAD_DC_3V3", 2},
    {"TSENS_TEMP", 2},    {"PELT1_OUTPUT", 2},    {"PELT2_OUTPUT", 2},  {"PELT1_P_TERM", 2},
    {"PELT1_I_TERM", 2},  {"PELT1_D_TERM", 2},    {"PELT1_I_ERR", 2},   {"PG_USB_1V8", 1},
    {"PG_1V2", 1},        {"PG_USB_3V3", 1},      {"PG_LP87524", 1},    {"PG_DDR_PWR", 1},
    {"PG_MGTAVTT", 1},    {"PG_MGTAVCC", 1},      {"LINK_BCA", 2},      {"LINK_FE", 2},
    {"PG_DETECTOR", 1},   {"PG_PELT1", 1},        {"PG_PELT2", 1},      {"PG_TPX_1V2_A", 1},
    {"PG_TPX_1V2_D", 1},  {"USB_CONN", 1},        {"TPX_BIAS_I", 2}};

constexpr LegacyMonitorName kOvexBoardLegacyNames[] = {
    {"FPGA_TEMP", "T_FPGA"},        {"VCC_INT", "U_FPGA_VCCINT"},  {"VCC_AUX", "U_FPGA_VCCAUX"},
    {"VCC_BRAM", "U_FPGA_VCCBRAM"}, {"VP_VN", "U_FPGA_VP_VN"},     {"I_LOAD_DC_1V0", "I_DC_1V0"},
    {"I_LOAD_DC_1V8", "I_DC_1V8"},  {"I_LOAD_DC_2V5", "I_DC_2V5"}, {"I_LOAD_DC_3V3", "I_DC_3V3"},
    {"TSENS_TEMP", "T_SENS"}};

// The chip boards name their bias monitors the old way too.
constexpr LegacyMonitorName kChipBoardLegacyNames[] = {
    {"FPGA_TEMP", "T_FPGA"},        {"VCC_INT", "U_FPGA_VCCINT"},  {"VCC_AUX", "U_FPGA_VCCAUX"},
    {"VCC_BRAM", "U_FPGA_VCCBRAM"}, {"VP_VN", "U_FPGA_VP_VN"},     {"I_LOAD_DC_1V0", "I_DC_1V0"},
    {"I_LOAD_DC_1V8", "I_DC_1V8"},  {"I_LOAD_DC_2V5", "I_DC_2V5"}, {"I_LOAD_DC_3V3", "I_DC_3V3"},
    {"TSENS_TEMP", "T_SENS"},       {"I_BIAS", "TPX_BIAS_I"},      {"U_BIAS", "TPX_BIAS_U"}};

constexpr LegacyMonitorName kNobeLegacyNames[] = {{"FPGA_TEMP_0", "T_FPGA_BE"},
                                                  {"VCC_INT_0", "U_FPGA_BE_VCCINT"},
                                                  {"VCC_AUX_0", "U_FPGA_BE_VCCAUX"},
                                                  {"VCC_BRAM_0", "U_FPGA_BE_VCCBRAM"},
                                                  {"V_MON", "U_VMON"},
                                                  {"FPGA_TEMP_1", "T_FPGA_FE"},
                                                  {"VCC_INT_1", "U_FPGA_FE_VCCINT"},
                                                  {"VCC_AUX_1", "U_FPGA_FE_VCCAUX"},
                                                  {"VCC_BRAM_1", "U_FPGA_FE_VCCBRAM"},
                                                  {"TPX_BIAS_U", "U_BIAS_FE"},
                                                  {"TPX_BIAS_I", "I_BIAS_FE"},
                                                  {"I_LOAD_DC_1V0", "I_DC_1V0"},
                                                  {"I_LOAD_DC_1V8", "I_DC_1V8"},
                                                  {"I_LOAD_DC_2V5", "I_DC_2V5"},
                                                  {"I_LOAD_DC_3V3", "I_DC_3V3"},
                                                  {"TSENS_TEMP", "T_SENS"}};

// The OvexBoard's Peltier controller in degrees Celsius, measured by the sensor's temperature.
constexpr TemperatureRecipe kOvexBoardTemperatures[] = {{"PELTIER", "TSENS_TEMP", 1}};

// The NoBE's first Peltier in degrees Celsius; its second in percent of its drive, unmeasured.
constexpr TemperatureRecipe kNobeTemperatures[] = {{"PELT1", "TSENS_TEMP", 1},
                                                   {"PELT2", nullptr, 2}};

}  // namespace

HousekeepingRecipe Tpx3Housekeeping() {
    return {kTpx3Monitors, kOvexBoardLegacyNames, kOvexBoardTemperatures, "BIAS", "U_BIAS"};
}

HousekeepingRecipe Tpx2CbHousekeeping() {
    return {kTpx2CbMonitors, kChipBoardLegacyNames, kOvexBoardTemperatures, "BIAS", "U_BIAS"};
}

HousekeepingRecipe Tpx4CbHousekeeping() {
    return {kTpx4CbMonitors, kChipBoardLegacyNames, kOvexBoardTemperatures, "BIAS", "U_BIAS"};
}

HousekeepingRecipe NobeHousekeeping() {
    return {kNobeMonitors, kNobeLegacyNames, kNobeTemperatures, "BIAS", "TPX_BIAS_U"};
}

}  // namespace ovex::sdk
