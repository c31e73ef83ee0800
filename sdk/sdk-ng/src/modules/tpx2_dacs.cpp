#include "modules/tpx2_dacs.hpp"

#include <span>
#include <string>
#include <utility>

#include "modules/chip_support.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {
namespace {

// Note the threshold pair: 7 is the coarse DAC and 8 the fine one.
const DacTable& Table() {
    static const DacTable table{
        {1, {"DAC_BIAS_PREAMP_ON", "PreampOn", true}},
        {2, {"DAC_BIAS_PREAMP_OFF", "PreamOff", true}},
        {3, {"DAC_BIAS_LS_ON", "LSOn", true}},
        {4, {"DAC_BIAS_LS_OFF", "LSOff", true}},
        {5, {"DAC_CASC_PREAMP", "CascPreamp", true}},
        {6, {"DAC_FBK", "FBK", true}},
        {7, {"DAC_TH_COARSE", "THLCoarse", true}},
        {8, {"DAC_TH_FINE", "THLFine", true}},
        {9, {"DAC_BIAS_IKRUM", "Ikrum", true}},
        {10, {"DAC_BIAS_DISC_PMOS", "DiscPMOS", true}},
        {11, {"DAC_BIAS_DISC_NMOS", "DiscNMOS", true}},
        {12, {"DAC_CASC_DISC", "Disc", true}},
        {13, {"DAC_BIAS_THS", "THS", true}},
        {14, {"DAC_GND", "GND", true}},
        {15, {"DAC_TP_COARSE", "TpCoarse", true}},
        {16, {"DAC_TP_FINE", "TpFine", true}},
        {17, {"DAC_BIAS_SLVS", "BiasSLSVS", true}},
        {18, {"DAC_CM_SLVS", "VcmSLVS", true}},
        {19, {"DAC_BIAS_RES", "BiasRes", false}},
    };
    return table;
}

constexpr const char* kSelect = "TPX_DAC_SELECT";
constexpr const char* kSense = "TPX_DAC_OUT";

ModuleRequirements DacItems(Commands* commands, States* states) {
    std::vector<std::string> names = DacStateNames(Table());
    names.emplace_back(kSense);
    ModuleRequirements requirements;
    requirements.commands = {{commands, {kSelect}}};
    requirements.states = {{states, std::move(names)}};
    return requirements;
}

}  // namespace

Tpx2Dacs::Tpx2Dacs(Commands* commands, States* states)
    : ITimepixDacs(DacItems(commands, states), false) {}

Commands& Tpx2Dacs::BoardCommands() const {
    return CheckedCommands(GetCommands());
}

States& Tpx2Dacs::BoardStates() const {
    return CheckedStates(GetStates());
}

std::vector<DacInfo> Tpx2Dacs::GetDacList() {
    return ListDacs(BoardStates(), Table());
}

std::error_code Tpx2Dacs::SetDac(std::uint8_t id, std::uint32_t value) {
    return SetDacState(BoardStates(), Table(), id, value);
}

std::error_code Tpx2Dacs::GetDac(std::uint8_t id, std::uint32_t& value) {
    return GetDacState(BoardStates(), Table(), id, value);
}

std::error_code Tpx2Dacs::SelectSenseDac(std::uint8_t id) {
    if (const auto ec = CheckSenseDac(Table(), id)) {
        return ec;
    }
    const auto ec = BoardCommands().Invoke(kSelect, std::span<const std::uint8_t>(&id, 1));
    if (!ec) {
        WaitForSenseOutput();
    }
    return ec;
}

std::error_code Tpx2Dacs::ReadDacOut(float& value) {
    int read = 0;
    if (const auto ec = BoardStates().Get(kSense, read)) {
        return ec;
    }
    value = static_cast<float>(read);
    return {};
}

}  // namespace ovex::sdk
