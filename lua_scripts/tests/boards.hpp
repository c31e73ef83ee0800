#pragma once

// Boards for the stand-ins of script_harness.hpp, one for each power unit: every name that the
// unit's script may use, with the unit switched off but healthy. The "On" snippets, run after
// them, switch the unit on as its power-up leaves it.
namespace ovex::lua_scripts::testing {

inline constexpr const char* kOvbdBoard = R"(
    states = { BIAS = 0, PELTIER_EN = 0, DETECTOR_EN = 0, GPIF_EN = 0, MAIN_CLK = 0,
               DDR_PWR_EN = 0, DC_1V0 = 0, DC_1V8 = 0, DC_2V5 = 0, DC_3V3 = 0 }
    versions = { FX3_FW = '1.4.2', Ovexboard = '2.0.7' }
    commands = { 'TUSB322', 'MAIN_PWR_RESET', 'FPGA_CONF', 'FPGA_RECONF', 'MAIN_CLK_SETUP',
                 'LOAD_EEPROM', 'XSPI_INIT', 'XADC_INIT', 'DACX_INIT' }
)";
inline constexpr const char* kOvbdOn = R"(
    states.MAIN_CLK, states.GPIF_EN, states.DDR_PWR_EN = 1, 1, 1
    states.DC_1V0, states.DC_1V8, states.DC_2V5, states.DC_3V3 = 1, 1, 1, 1
)";

inline constexpr const char* kNobeBoard = R"(
    states = { PELT1 = 0, PELT2 = 0, DETECTOR_EN = 0, GPIF_EN = 0, MAIN_CLK = 0,
               DDR_PWR_EN = 0, DC_1V0 = 0, DC_1V8 = 0, DC_2V5 = 0, DC_3V3 = 0 }
    monitors = { PG_DDR_PWR = 1 }
    versions = { FX3_FW = '1.4.2', NOBE = '3.1.0' }
    commands = { 'MAIN_PWR_RESET', 'BIAS_DAC_RESET', 'FPGA_CONF', 'FPGA_RECONF', 'XSPI0_INIT',
                 'XADC0_INIT' }
)";
inline constexpr const char* kNobeOn = R"(
    states.MAIN_CLK, states.GPIF_EN, states.DDR_PWR_EN = 1, 1, 1
    states.DC_1V0, states.DC_1V8, states.DC_2V5, states.DC_3V3 = 1, 1, 1, 1
)";

// Power-good monitors read 1 when good, the voltage monitor reads volts.
inline constexpr const char* kTpx3EfeBoard = R"(
    states = { PELTIER_EN = 0, PELTIER = 350, FRONTEND_EN = 0, DETECTOR_EN = 0, BIAS = 0 }
    monitors = { PG_FE_5V = 1, PG_1V8 = 1, PG_VDD = 1, PG_VDDA = 1, MONITOR_5V = 5.0 }
    commands = { 'IO_EXP_INIT', 'ADC_INIT', 'TSENS_RESET' }
)";
inline constexpr const char* kTpx3EfeOn = R"(
    states.PELTIER_EN, states.FRONTEND_EN, states.DETECTOR_EN = 1, 1, 1
)";

inline constexpr const char* kTpx2CbBoard = R"(
    states = { PELTIER_EN = 0, PELTIER = 350, DETECTOR_EN = 0, BIAS = 0 }
    monitors = { PG_1V2_A = 1, PG_1V2_D = 1, MONITOR_5V = 5.0 }
    commands = { 'ADC_INIT', 'TSENS_RESET' }
)";
inline constexpr const char* kTpx2CbOn = R"(
    states.PELTIER_EN, states.DETECTOR_EN = 1, 1
)";

inline constexpr const char* kTpx4CbBoard = R"(
    states = { PELTIER = 0, DETECTOR_EN = 0, BIAS = 0 }
    monitors = { PG_VDD = 1, PG_VDDA = 1, PG_PLL = 1, PG_PST = 1, PG_GWT = 1, PG_1V8A = 1,
                 PG_1V8D = 1 }
    commands = { 'ADC_INIT_OVBD', 'ADC_INIT_CB', 'PWR_CTRL_INIT', 'TSENS_RESET',
                 'TPX4_POWER_UP' }
)";
inline constexpr const char* kTpx4CbOn = R"(
    states.PELTIER, states.DETECTOR_EN = 350, 1
)";

inline constexpr const char* kTp2FeBoard = R"(
    states = { DETECTOR_EN = 0, CHIP_EN = 0, TPX_1V2 = 0, BIAS = 0, PELT1 = 0 }
    monitors = { PG_DETECTOR = 1, PG_1V2 = 1, PG_TPX_1V2_D = 1, PG_TPX_1V2_A = 1 }
    versions = { TP2FE = '1.0.3', TPX2 = '0x2A' }
    commands = { 'TSENS_RESET', 'XSPI1_INIT', 'XADC1_INIT' }
)";
inline constexpr const char* kTp2FeOn = R"(
    states.DETECTOR_EN, states.CHIP_EN, states.TPX_1V2 = 1, 1, 1
)";

}  // namespace ovex::lua_scripts::testing
