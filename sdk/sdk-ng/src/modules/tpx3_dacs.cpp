#include "modules/tpx3_dacs.hpp"

#include <string>
#include <utility>
#include <vector>

#include "modules/chip_support.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {
namespace {

const DacTable& Table() {
    static const DacTable table{
        {1, {"DAC_PreampOn_0", "PreampOn", true}},
        {2, {"DAC_PreampOff_0", "PreampOff", true}},
        {3, {"DAC_NCas_0", "NCas", true}},
        {4, {"DAC_Ikrum_0", "Ikrum", true}},
        {5, {"DAC_Fbk_0", "Fbk", true}},
        {6, {"DAC_THLFine_0", "THLFine", true}},
        {7, {"DAC_THLCoarse_0", "THLCoarse", true}},
        {8, {"DAC_DiscS1On_0", "DiscS1On", true}},
        {9, {"DAC_DiscS1Off_0", "DiscS1Off", true}},
        {10, {"DAC_DiscS2On_0", "DiscS2On", true}},
        {11, {"DAC_DiscS2Off_0", "DiscS2Off", true}},
        {12, {"DAC_PixelDac_0", "PixelDac", true}},
        {13, {"DAC_TpBuffIn_0", "TpBuffIn", true}},
        {14, {"DAC_TpBuffOut_0", "TpBuffOut", true}},
        {15, {"DAC_TpCoarse_0", "TpCoarse", true}},
        {16, {"DAC_TpFine_0", "TpFine", true}},
        {17, {"DAC_CpPll_0", "CpPll", true}},
        {18, {"DAC_PllVCntrl_0", "PllVCntrl", true}},
    };
    return table;
}

constexpr const char* kSelect = "TPX_DAC_SELECT";
constexpr const char* kSense = "TPX_DAC_OUT";

ModuleRequirements DacItems(States* states) {
    std::vector<std::string> names = DacStateNames(Table());
    names.emplace_back(kSelect);
    names.emplace_back(kSense);
    ModuleRequirements requirements;
    requirements.states = {{states, std::move(names)}};
    return requirements;
}

}  // namespace

Tpx3Dacs::Tpx3Dacs(States* states) : ITimepixDacs(DacItems(states), false) {}

States& Tpx3Dacs::BoardStates() const {
    return CheckedStates(GetStates());
}

std::vector<DacInfo> Tpx3Dacs::GetDacList() {
    return ListDacs(BoardStates(), Table());
}

std::error_code Tpx3Dacs::SetDac(std::uint8_t id, std::uint32_t value) {
    return SetDacState(BoardStates(), Table(), id, value);
}

std::error_code Tpx3Dacs::GetDac(std::uint8_t id, std::uint32_t& value) {
    return GetDacState(BoardStates(), Table(), id, value);
}

std::error_code Tpx3Dacs::SelectSenseDac(std::uint8_t id) {
    if (const auto ec = CheckSenseDac(Table(), id)) {
        return ec;
    }
    const auto ec = BoardStates().Set(kSelect, id);
    if (!ec) {
        WaitForSenseOutput();
    }
    return ec;
}

std::error_code Tpx3Dacs::ReadDacOut(float& value) {
    int read = 0;
    if (const auto ec = BoardStates().Get(kSense, read)) {
        OVEX_LOG_EC(log::kError, "%s - %s: %s.", ec, "Unable to read measured value of DAC_OUT");
        return ec;
    }
    value = static_cast<float>(read);
    return {};
}

}  // namespace ovex::sdk
