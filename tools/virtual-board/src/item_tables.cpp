#include "ovex/vboard/item_tables.hpp"

#include <initializer_list>
#include <limits>
#include <stdexcept>

#include "power_rails.hpp"

// The virtual board's ITEMS.md tells where each item and each value comes from.

namespace ovex::vboard {
namespace {

// The shutter counter is a raw 32-bit tick count: every int is a valid value.
constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr int kIntMax = std::numeric_limits<int>::max();

template <typename Item>
std::vector<Item> Join(std::initializer_list<std::vector<Item>> parts) {
    std::vector<Item> all;
    for (const std::vector<Item>& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::vector<CommandItem> Acting(std::initializer_list<const char*> names) {
    std::vector<CommandItem> commands;
    for (const char* name : names) {
        commands.push_back({name, {}});
    }
    return commands;
}

// An enable line: 0 off, 1 on; everything is off at power-on.
StateItem Switch(const char* name) {
    return {name, 0, 0, 1};
}

// A power-good flag: 1 while its rail is good. A switched rail's flag reads 0 while the rail is
// off (see the power layouts below).
MonitorItem PowerGood(const char* name) {
    return {name, 1.0F, 0.0F, 1.0F};
}

// Regulators that share their enables, each with its own monitors (so each can fail alone).
std::vector<RailItem> RailsEach(const std::vector<std::string>& enables,
                                std::initializer_list<std::vector<std::string>> monitors) {
    std::vector<RailItem> rails;
    for (const std::vector<std::string>& measured : monitors) {
        rails.push_back({enables, measured});
    }
    return rails;
}

// The load current of each DC/DC rail is measured behind its switch.
std::vector<RailItem> LoadCurrentRails() {
    std::vector<RailItem> rails;
    for (const std::string_view rail : kDcDcStates) {
        rails.push_back({{std::string(rail)}, {"I_LOAD_" + std::string(rail)}});
    }
    return rails;
}

// The chip record: type, second code 1 (first revision), chips behind the frontend (16 bits,
// big-endian), an unused byte, the frontend's interface version 1.0 (16 bits, big-endian), pad.
std::vector<std::uint8_t> ChipInfoAnswer(std::uint8_t chip_type) {
    return {chip_type, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00, 0x00};
}

// Back-end FPGA flash: part number, then flash size (its low byte ends the text), page size and
// one region of uniform sectors, closed by an empty region. Sizes are little-endian.
std::vector<std::uint8_t> FlashInfoAnswer() {
    std::vector<std::uint8_t> answer = {'S', '2', '5', 'F', 'S', '1', '2', '8', 'S'};
    answer.insert(answer.end(), {0x00, 0x00, 0x00, 0x01});              // 16 MiB
    answer.insert(answer.end(), {0x00, 0x01});                          // 256-byte pages
    answer.insert(answer.end(), {0x00, 0x00, 0x01, 0x00, 0x00, 0x01});  // 256 sectors of 64 KiB
    answer.insert(answer.end(), {0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
    return answer;
}

// What FLASH_READ0 answers is the flash's content, which the memory model holds, not this table.
std::vector<CommandItem> FlashCommands() {
    return {{"FLASH_INIT0", {}},    {"FLASH_INFO0", FlashInfoAnswer()},
            {"FLASH_BLK_CFG0", {}}, {"FLASH_READ0", {}},
            {"FLASH_ERASE0", {}},   {"FLASH_WRITE0", {}}};
}

std::vector<CommandItem> OvexBoardBackendCommands() {
    return Join<CommandItem>(
        {Acting({"TUSB322", "MAIN_PWR_RESET", "FPGA_CONF", "FPGA_RECONF", "MAIN_CLK_SETUP",
                 "LOAD_EEPROM", "XSPI_INIT", "XADC_INIT", "DACX_INIT"}),
         FlashCommands(),
         Acting({"TRIG_I_1PULSE", "TRIG_I_LEVEL", "TRIG_I_EDGE", "TRIG_O_DISABLE", "TRIG_O_LEVEL",
                 "TRIG_O_EDGE", "TRIG_O_1PULSE"})});
}

std::vector<StateItem> MainPowerStates() {
    return {Switch("DC_1V0"),     Switch("DC_1V8"),  Switch("DC_2V5"),  Switch("DC_3V3"),
            Switch("DDR_PWR_EN"), Switch("GPIF_EN"), Switch("MAIN_CLK")};
}

std::vector<StateItem> OvexBoardBackendStates() {
    return Join<StateItem>(
        {MainPowerStates(), {{"READY_IO_EN", 0, 0, 3}, {"SYNC_IO_ACT_LOW", 0, 0, 3}}});
}

// Bias in whole volts, either polarity; Peltier set point in tenths of a degree, 0 is off.
std::vector<StateItem> OvexBoardSensorStates() {
    return {Switch("DETECTOR_EN"),
            {"BIAS", 0, -300, 300},
            Switch("PELTIER_EN"),
            {"PELTIER", 350, 0, 600}};
}

// The efuses are read-only, so their limits pin the fused word. The sense pin reads in millivolts.
std::vector<StateItem> ShutterAndSenseStates(int efuses) {
    return {{"TPX_CHIP_ID", efuses, efuses, efuses},
            {"TPX_SHUT_DUR", 0, kIntMin, kIntMax},
            {"TPX_DAC_OUT", 0, 0, 1500}};
}

std::vector<StateItem> Timepix3DacStates() {
    return {{"DAC_PreampOn_0", 128, 0, 255}, {"DAC_PreampOff_0", 8, 0, 255},
            {"DAC_NCas_0", 128, 0, 255},     {"DAC_Ikrum_0", 10, 0, 255},
            {"DAC_Fbk_0", 128, 0, 255},      {"DAC_THLFine_0", 256, 0, 511},
            {"DAC_THLCoarse_0", 7, 0, 15},   {"DAC_DiscS1On_0", 128, 0, 255},
            {"DAC_DiscS1Off_0", 8, 0, 255},  {"DAC_DiscS2On_0", 128, 0, 255},
            {"DAC_DiscS2Off_0", 8, 0, 255},  {"DAC_PixelDac_0", 128, 0, 255},
            {"DAC_TpBuffIn_0", 128, 0, 255}, {"DAC_TpBuffOut_0", 128, 0, 255},
            {"DAC_TpCoarse_0", 128, 0, 255}, {"DAC_TpFine_0", 256, 0, 511},
            {"DAC_CpPll_0", 128, 0, 255},    {"DAC_PllVCntrl_0", 128, 0, 255}};
}

std::vector<StateItem> Timepix2DacStates() {
    return {{"DAC_BIAS_PREAMP_ON", 128, 0, 255}, {"DAC_BIAS_PREAMP_OFF", 8, 0, 255},
            {"DAC_BIAS_LS_ON", 128, 0, 255},     {"DAC_BIAS_LS_OFF", 8, 0, 255},
            {"DAC_CASC_PREAMP", 128, 0, 255},    {"DAC_FBK", 128, 0, 255},
            {"DAC_TH_COARSE", 7, 0, 15},         {"DAC_TH_FINE", 512, 0, 1023},
            {"DAC_BIAS_IKRUM", 10, 0, 255},      {"DAC_BIAS_DISC_PMOS", 128, 0, 255},
            {"DAC_BIAS_DISC_NMOS", 128, 0, 255}, {"DAC_CASC_DISC", 128, 0, 255},
            {"DAC_BIAS_THS", 128, 0, 255},       {"DAC_GND", 128, 0, 255},
            {"DAC_TP_COARSE", 128, 0, 255},      {"DAC_TP_FINE", 512, 0, 1023},
            {"DAC_BIAS_SLVS", 128, 0, 255},      {"DAC_CM_SLVS", 128, 0, 255},
            {"DAC_BIAS_RES", 128, 0, 255}};
}

std::vector<CommandItem> Timepix2ChipCommands() {
    return Join<CommandItem>({Acting({"TPX_INIT", "TPX_DEFAULT_DAC"}),
                              {{"TPX_CHIP_INFO", ChipInfoAnswer(2)}},
                              Acting({"TPX_PRC_BYPASS", "TPX_WRITE_MATRIX", "TPX_READ_MATRIX",
                                      "TPX_OPMODE", "TPX_DAC_SELECT", "TPX_SHUT_EXT",
                                      "TPX_TRIG_SINGLE", "TPX_TRIG_CONT", "TPX_TRIG_ABORT"})});
}

// XADC readings of a running FPGA, in degrees Celsius and volts, with a `suffix` per FPGA.
std::vector<MonitorItem> FpgaMonitors(const std::string& suffix) {
    return {{"FPGA_TEMP" + suffix, 45.0F, -40.0F, 125.0F},
            {"VCC_INT" + suffix, 1.0F, 0.95F, 1.05F},
            {"VCC_AUX" + suffix, 1.8F, 1.71F, 1.89F},
            {"VCC_BRAM" + suffix, 1.0F, 0.95F, 1.05F}};
}

std::vector<std::string> MonitorNames(const std::vector<MonitorItem>& monitors) {
    std::vector<std::string> names;
    for (const MonitorItem& monitor : monitors) {
        names.push_back(monitor.name);
    }
    return names;
}

// Load currents of the four DC/DC rails, in amperes.
std::vector<MonitorItem> LoadCurrentMonitors() {
    return {{"I_LOAD_DC_1V0", 0.42F, 0.0F, 3.0F},
            {"I_LOAD_DC_1V8", 0.21F, 0.0F, 3.0F},
            {"I_LOAD_DC_2V5", 0.08F, 0.0F, 3.0F},
            {"I_LOAD_DC_3V3", 0.15F, 0.0F, 3.0F}};
}

std::vector<MonitorItem> OvexBoardBackendMonitors() {
    return Join<MonitorItem>({FpgaMonitors(""),
                              {{"VP_VN", 0.0F, 0.0F, 1.0F}},
                              LoadCurrentMonitors(),
                              {{"TSENS_TEMP", 26.0F, -40.0F, 125.0F}}});
}

// Bias in volts and microamperes; Peltier drive in amperes and volts, its controller's output and
// terms in percent, its integrated error in degree-seconds. All idle while bias and Peltier are
// off.
std::vector<MonitorItem> BiasAndPeltierMonitors() {
    return {{"U_BIAS", 0.0F, -300.0F, 300.0F},
            {"I_BIAS", 0.0F, -100.0F, 100.0F},
            {"I_PELT", 0.0F, -3.0F, 3.0F},
            {"U_PELT", 0.0F, -5.0F, 5.0F},
            {"PELTIER_OUTPUT", 0.0F, -100.0F, 100.0F},
            {"PELTIER_P_TERM", 0.0F, -100.0F, 100.0F},
            {"PELTIER_I_TERM", 0.0F, -100.0F, 100.0F},
            {"PELTIER_D_TERM", 0.0F, -100.0F, 100.0F},
            {"PELTIER_I_ERR", 0.0F, -1000.0F, 1000.0F}};
}

ItemTables Timepix3Tables() {
    return {
        .board_id = "TPX3EFE",
        .bcd_device = 0x0303,
        .product = "OvexBoard Timepix3",
        .commands = Join<CommandItem>(
            {OvexBoardBackendCommands(),
             Acting({"IO_EXP_INIT", "ADC_INIT", "TSENS_RESET"}),
             Acting({"TPX_INIT", "TPX_ALIGN_CLK", "TPX_DEFAULT_DAC", "TPX_RESET_SEQ"}),
             {{"TPX_CHIP_INFO", ChipInfoAnswer(3)}},
             Acting({"TPX_LOAD_PXCONF", "TPX_READ_PXCONF", "TPX_OPMODE", "TPX_T0_SYNC",
                     "TPX_SHUT_EXT", "TPX_SHUT_IMM", "TPX_SHUT_STOP"})}),
        .states = Join<StateItem>({OvexBoardBackendStates(),
                                   {Switch("FRONTEND_EN")},
                                   OvexBoardSensorStates(),
                                   {{"TPX_CHAN_EN", 0, 0, 255}, {"TPX_CHIP_POLARITY", 0, 0, 1}},
                                   ShutterAndSenseStates(0x00013E58),  // H05-W0318
                                   {{"TPX_DAC_SELECT", 0, 0, 18}},
                                   Timepix3DacStates()}),
        .monitors = Join<MonitorItem>(
            {OvexBoardBackendMonitors(),
             {{"TPX_DAC_OUT", 0.0F, 0.0F, 1.5F}, {"MONITOR_5V", 5.0F, 0.0F, 5.5F}},
             BiasAndPeltierMonitors(),
             {PowerGood("PG_1V8"), PowerGood("PG_VDD"), PowerGood("PG_VDDA"), PowerGood("PG_5V"),
              PowerGood("PG_FE_5V")}}),
        .versions = {{"FX3_FW", "0.24.3-TPX3"}, {"Ovexboard", "2.7.4"}},
        // The chip's regulators run off the front end's 5 V.
        .power = {.rails = Join<RailItem>({{{{"FRONTEND_EN"}, {"PG_FE_5V", "MONITOR_5V"}}},
                                           RailsEach({"FRONTEND_EN", "DETECTOR_EN"},
                                                     {{"PG_1V8"}, {"PG_VDD"}, {"PG_VDDA"}}),
                                           LoadCurrentRails()}),
                  .frontend_commands = {"IO_EXP_INIT", "ADC_INIT", "TSENS_RESET"},
                  .frontend_supply = {"FRONTEND_EN"},
                  .peltier_enable = "PELTIER_EN"},
    };
}

ItemTables Timepix2ChipBoardTables() {
    return {
        .board_id = "TPX2CB",
        .bcd_device = 0x0303,
        .product = "OvexBoard Timepix2 CB",
        .commands = Join<CommandItem>({OvexBoardBackendCommands(),
                                       Acting({"ADC_INIT", "TSENS_RESET", "PIPELINE_BPP"}),
                                       Timepix2ChipCommands()}),
        .states = Join<StateItem>({OvexBoardBackendStates(), OvexBoardSensorStates(),
                                   ShutterAndSenseStates(0x00001975),  // E07-W0025
                                   Timepix2DacStates()}),
        .monitors = Join<MonitorItem>(
            {OvexBoardBackendMonitors(),
             {{"TPX_DAC_OUT", 0.0F, 0.0F, 1.5F}, {"MONITOR_5V", 5.0F, 0.0F, 5.5F}},
             BiasAndPeltierMonitors(),
             {PowerGood("PG_1V2_A"), PowerGood("PG_1V2_D"), PowerGood("PG_1V8_D")}}),
        .versions = {{"FX3_FW", "1.6.3-TPX2CB"}, {"Ovexboard", "2.9.1"}},
        .power = {.rails = Join<RailItem>(
                      {RailsEach({"DETECTOR_EN"},
                                 {{"PG_1V2_A"}, {"PG_1V2_D"}, {"PG_1V8_D"}, {"MONITOR_5V"}}),
                       LoadCurrentRails()}),
                  .peltier_enable = "PELTIER_EN"},
    };
}

ItemTables Timepix4ChipBoardTables() {
    return {
        .board_id = "TPX4CB",
        .bcd_device = 0x0303,
        .product = "OvexBoard Timepix4 CB",
        .commands = Join<CommandItem>({OvexBoardBackendCommands(),
                                       Acting({"ADC_INIT_OVBD", "ADC_INIT_CB", "PWR_CTRL_INIT",
                                               "TPX4_POWER_UP", "TSENS_RESET"}),
                                       {{"TPX_CHIP_INFO", ChipInfoAnswer(4)}}}),
        .states = Join<StateItem>({OvexBoardBackendStates(), OvexBoardSensorStates()}),
        .monitors = Join<MonitorItem>(
            {OvexBoardBackendMonitors(),
             {{"TPX_DAC_OUT_TOP", 0.0F, 0.0F, 1.5F}, {"TPX_DAC_OUT_BOT", 0.0F, 0.0F, 1.5F}},
             BiasAndPeltierMonitors(),
             {{"TPX_CURRENT_DIGITAL", 0.35F, 0.0F, 2.0F},
              {"TPX_CURRENT_ANALOG", 0.55F, 0.0F, 2.0F},
              PowerGood("PG_1V8A"),
              PowerGood("PG_1V8D"),
              PowerGood("PG_PLL"),
              PowerGood("PG_PST"),
              PowerGood("PG_VDD"),
              PowerGood("PG_VDDA"),
              PowerGood("PG_PELT"),
              PowerGood("PG_GWT"),
              PowerGood("PG_5V")}}),
        .versions = {{"FX3_FW", "1.5.1-TPX4CB"}, {"Ovexboard", "2.8.0"}},
        // The chip's currents are measured on its digital and analog supplies.
        .power = {.rails =
                      Join<RailItem>({RailsEach({"DETECTOR_EN"}, {{"PG_VDD", "TPX_CURRENT_DIGITAL"},
                                                                  {"PG_VDDA", "TPX_CURRENT_ANALOG"},
                                                                  {"PG_PLL"},
                                                                  {"PG_PST"},
                                                                  {"PG_GWT"},
                                                                  {"PG_1V8A"},
                                                                  {"PG_1V8D"}}),
                                      // The chip board's Peltier driver runs with the
                                      // board's supply while it has a set point.
                                      {{{"DETECTOR_EN", "PELTIER"}, {"PG_PELT"}}},
                                      LoadCurrentRails()}),
                  .peltier_enable = "DETECTOR_EN"},
    };
}

ItemTables NobeTables() {
    return {
        .board_id = "NOBE",
        .bcd_device = 0x0300,
        .product = "NOBE",
        .commands = Join<CommandItem>(
            {Acting({"MAIN_PWR_RESET", "BIAS_DAC_RESET", "FPGA_CONF", "FPGA_RECONF", "XSPI0_INIT",
                     "XADC0_INIT", "XSPI1_INIT", "XADC1_INIT", "TSENS_RESET"}),
             FlashCommands(), Acting({"PIPELINE_BPP"}), Timepix2ChipCommands()}),
        .states = Join<StateItem>({MainPowerStates(),
                                   {Switch("DETECTOR_EN"),
                                    Switch("CHIP_EN"),
                                    Switch("TPX_1V2"),
                                    {"BIAS", 0, -300, 300},
                                    // Front-end Peltier in tenths of a degree (0 is off); external
                                    // element in percent of full drive, positive cools.
                                    {"PELT1", 0, 0, 600},
                                    {"PELT2", 0, -100, 100}},
                                   ShutterAndSenseStates(0x00002924),  // D02-W0041
                                   Timepix2DacStates()}),
        .monitors = Join<MonitorItem>({FpgaMonitors("_0"),
                                       {{"V_MON", 5.0F, 4.75F, 5.25F},
                                        {"U_BIAS_PRE_FUSE", 0.0F, -300.0F, 300.0F},
                                        {"U_BIAS", 0.0F, -300.0F, 300.0F},
                                        {"I_PELT1", 0.0F, -3.0F, 3.0F},
                                        {"U_PELT1", 0.0F, -5.0F, 5.0F},
                                        {"I_PELT2", 0.0F, -3.0F, 3.0F},
                                        {"U_PELT2", 0.0F, -5.0F, 5.0F}},
                                       FpgaMonitors("_1"),
                                       {{"TPX_BIAS_U", 0.0F, -300.0F, 300.0F}},
                                       LoadCurrentMonitors(),
                                       {{"TSENS_TEMP", 26.0F, -40.0F, 125.0F},
                                        {"PELT1_OUTPUT", 0.0F, -100.0F, 100.0F},
                                        {"PELT2_OUTPUT", 0.0F, -100.0F, 100.0F},
                                        {"PELT1_P_TERM", 0.0F, -100.0F, 100.0F},
                                        {"PELT1_I_TERM", 0.0F, -100.0F, 100.0F},
                                        {"PELT1_D_TERM", 0.0F, -100.0F, 100.0F},
                                        {"PELT1_I_ERR", 0.0F, -1000.0F, 1000.0F},
                                        PowerGood("PG_USB_1V8"),
                                        PowerGood("PG_1V2"),
                                        PowerGood("PG_USB_3V3"),
                                        PowerGood("PG_LP87524"),
                                        PowerGood("PG_DDR_PWR"),
                                        PowerGood("PG_MGTAVTT"),
                                        PowerGood("PG_MGTAVCC"),
                                        {"LINK_BCA", 1.0F, 0.0F, 1.0F},
                                        {"LINK_FE", 1.0F, 0.0F, 1.0F},
                                        PowerGood("PG_DETECTOR"),
                                        PowerGood("PG_PELT1"),
                                        PowerGood("PG_PELT2"),
                                        PowerGood("PG_TPX_1V2_A"),
                                        PowerGood("PG_TPX_1V2_D"),
                                        PowerGood("USB_CONN"),
                                        {"TPX_BIAS_I", 0.0F, -100.0F, 100.0F}}}),
        .versions = {{"FX3_FW", "0.19.3"},
                     {"NOBE", "1.12.0"},
                     {"TP2FE", "1.4.2"},
                     {"TPX2", "2.1.0"}},
        // The converter and the FPGA's transceiver rails hang on all four DC/DC rails; the
        // front end's rails, its FPGA's XADC and its temperature sensor on its own supply; a
        // Peltier supply is on while it is driven.
        .power = {.rails = Join<RailItem>(
                      {RailsEach({kDcDcStates.begin(), kDcDcStates.end()},
                                 {{"PG_LP87524"}, {"PG_MGTAVTT"}, {"PG_MGTAVCC"}}),
                       {{{"DDR_PWR_EN"}, {"PG_DDR_PWR"}},
                        {{"DETECTOR_EN"}, {"PG_DETECTOR"}},
                        {{"DETECTOR_EN"}, MonitorNames(FpgaMonitors("_1"))},
                        {{"DETECTOR_EN"}, {"TSENS_TEMP"}},
                        {{"DETECTOR_EN", "CHIP_EN"}, {"PG_1V2"}}},
                       RailsEach({"DETECTOR_EN", "TPX_1V2"}, {{"PG_TPX_1V2_D"}, {"PG_TPX_1V2_A"}}),
                       {{{"PELT1"}, {"PG_PELT1"}}, {{"PELT2"}, {"PG_PELT2"}}},
                       LoadCurrentRails()}),
                  .frontend_commands = {"TSENS_RESET", "XSPI1_INIT", "XADC1_INIT"},
                  .frontend_supply = {"DETECTOR_EN"},
                  .links = {"LINK_BCA", "LINK_FE"}},
    };
}

}  // namespace

const ItemTables& TablesOf(BoardKind kind) {
    switch (kind) {
        case BoardKind::kTimepix3: {
            static const ItemTables tables = Timepix3Tables();
            return tables;
        }
        case BoardKind::kTimepix2Cb: {
            static const ItemTables tables = Timepix2ChipBoardTables();
            return tables;
        }
        case BoardKind::kTimepix4Cb: {
            static const ItemTables tables = Timepix4ChipBoardTables();
            return tables;
        }
        case BoardKind::kNobe: {
            static const ItemTables tables = NobeTables();
            return tables;
        }
    }
    throw std::invalid_argument("unknown board kind");
}

std::optional<BoardKind> KindWithBoardId(std::string_view board_id) {
    for (const BoardKind kind :
         {BoardKind::kTimepix3, BoardKind::kTimepix2Cb, BoardKind::kTimepix4Cb, BoardKind::kNobe}) {
        if (TablesOf(kind).board_id == board_id) {
            return kind;
        }
    }
    return std::nullopt;
}

}  // namespace ovex::vboard
