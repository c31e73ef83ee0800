// The DAC functions of the older interface: names, limits and values of chip 0 on virtual
// Timepix3 and NoBE boards, and the shared table's partition into ordinary and sense DACs and the
// NoBE prefix rules over a chip with a DAC list made up here.

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "context.hpp"
#include "modules/timepix_chip.hpp"
#include "support/fake_device.hpp"
#include "support/legacy_session.hpp"

namespace ovex::sdk::testing {
namespace {

// DACs of the names given, those at the places in `sense` listed as sense outputs; they remember
// what was selected for measuring.
class ListedDacs final : public ITimepixDacs {
public:
    const char* GetName() const override { return "Listed DACs"; }
    std::vector<DacInfo> GetDacList() override {
        std::vector<DacInfo> list;
        for (std::size_t i = 0; i < names.size(); ++i) {
            const auto id = static_cast<std::uint8_t>(i + 1);
            list.push_back({id, names[i].c_str(), 0, 100 + id, sense.count(i) != 0, true});
        }
        return list;
    }
    std::error_code SetDac(std::uint8_t, std::uint32_t) override { return {}; }
    std::error_code GetDac(std::uint8_t, std::uint32_t&) override { return {}; }
    std::error_code SelectSenseDac(std::uint8_t id) override {
        selected.push_back(id);
        return {};
    }
    std::error_code ReadDacOut(float& value) override {
        value = 0.5f;
        return {};
    }

    std::vector<std::string> names;
    std::set<std::size_t> sense;
    std::vector<std::uint8_t> selected;
};

// A chip that only has its DACs.
class DacsOnlyChip final : public ITimepixChip {
public:
    const char* GetName() const override { return "DACs-only chip"; }
    std::error_code GetPolarity(std::uint8_t&) override { return {}; }
    std::optional<ChipInfo> GetInfo() override { return std::nullopt; }
    std::error_code Reset() override { return {}; }
    std::vector<std::uint8_t> GetDefaultMatrix() override { return {}; }
    std::error_code WriteMatrix(std::span<const std::uint8_t>) override { return {}; }
    std::error_code ReadMatrix(std::vector<std::uint8_t>&) override { return {}; }
    std::error_code SetMask(std::span<const std::uint8_t>) override { return {}; }
    std::error_code GetMask(std::vector<std::uint8_t>&) override { return {}; }
    std::error_code DigitalTest(std::vector<std::uint32_t>&) override { return {}; }
    std::error_code CreateThresholdControl(const configuration::ConfigLoader*) override {
        return {};
    }
    std::error_code SetPolarity(std::uint8_t) override { return {}; }
    std::string GetChipId() override { return "made-up"; }
    ITimepixDacs& GetDacs() override { return dacs; }
    std::error_code SetMode(ovexsdk_chip_mode) override { return {}; }
    ovexsdk_chip_mode GetMode() override { return Unknown; }
    bool IsModeSet() override { return false; }
    IThresholdControl* GetThresholdControl() override { return nullptr; }

    ListedDacs dacs;
};

class LegacyDacs : public LegacySession {
protected:
    // A handle whose device is a chip with the DACs named, on a board of that product.
    ListedDacs& MadeUpChip(std::vector<std::string> names, const std::string& product) {
        New();
        usb::device::DeviceInfo identity;
        identity.product = product;
        auto device = std::make_unique<FakeDevice>(m_script);
        device->AddModule<UsbDeviceProperties>(
            std::make_unique<FakeProperties>(identity, std::error_code{}));
        auto chip = std::make_unique<DacsOnlyChip>();
        chip->dacs.names = std::move(names);
        ListedDacs& dacs = chip->dacs;
        device->AddModule<ITimepixChip>(std::move(chip));
        record::Get(&m_ctx->context).Device() = std::move(device);
        return dacs;
    }

    std::vector<std::string> Names(bool sense) {
        uint32_t count = 0;
        const auto counter = sense ? &ovex_chip_sense_dac_count : &ovex_chip_dac_count;
        const auto namer = sense ? &ovex_chip_sense_dac_name : &ovex_chip_dac_name;
        EXPECT_EQ(counter(m_ctx, &count), OVEX_OK);
        std::vector<std::string> names;
        for (uint32_t index = 0; index < count; ++index) {
            const char* name = nullptr;
            EXPECT_EQ(namer(m_ctx, index, &name), OVEX_OK);
            names.emplace_back(name != nullptr ? name : "<null>");
        }
        const char* beyond = nullptr;
        EXPECT_EQ(namer(m_ctx, count, &beyond), OVEX_ERR_HANDLE);
        return names;
    }

    int State(const char* name) { return Board().Engine().StateValue(name); }

    DeviceScript m_script;
};

// "D<i>", appended rather than joined with +: GCC 12 warns falsely (-Wrestrict) on the join at -O3.
std::string DacName(int i) {
    std::string name(1, 'D');
    name += std::to_string(i);
    return name;
}

TEST_F(LegacyDacs, Timepix3DacsByNameReachTheirStatesAndTheSenseLine) {
    ASSERT_EQ(AddAndOpen(), OVEX_OK);
    uint32_t count = 9;
    // No chip before the frontend's power-up: the library's refusal.
    EXPECT_EQ(ovex_chip_dac_count(m_ctx, &count), OVEX_ERR_INVALID);
    ASSERT_EQ(ovexsdk_dev_power_up(&m_ctx->context), OVEXSDK_OK);

    const auto names = Names(false);
    ASSERT_EQ(names.size(), 18u);
    EXPECT_EQ(names[0], "PreampOn");
    EXPECT_EQ(names[6], "THLCoarse");
    EXPECT_EQ(names[17], "PllVCntrl");
    EXPECT_TRUE(Names(true).empty());

    int32_t min = 9;
    int32_t max = 0;
    ASSERT_EQ(ovex_chip_dac_limits(m_ctx, "THLFine", &min, &max), OVEX_OK);
    EXPECT_EQ(min, 0);
    EXPECT_EQ(max, 511);
    EXPECT_EQ(ovex_chip_dac_limits(m_ctx, "THLCoarse", nullptr, &max), OVEX_OK);
    EXPECT_EQ(max, 15);

    ASSERT_EQ(ovex_chip_dac_value_set(m_ctx, "THLCoarse", 7), OVEX_OK);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 7);
    uint16_t value = 0;
    ASSERT_EQ(ovex_chip_dac_value_get(m_ctx, "THLCoarse", &value), OVEX_OK);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(ovex_chip_dac_value_set(m_ctx, "THLCoarse", 16), OVEX_ERR_UNAVAILABLE);
    EXPECT_EQ(State("DAC_THLCoarse_0"), 7);

    float volts = 0;
    ASSERT_EQ(ovex_chip_dac_measure(m_ctx, "THLCoarse", &volts), OVEX_OK);
    EXPECT_EQ(State("TPX_DAC_SELECT"), 7);
    EXPECT_GT(volts, 0.0f);
    ASSERT_EQ(ovex_chip_sense_dac_sel(m_ctx, "THLFine"), OVEX_OK);
    EXPECT_EQ(State("TPX_DAC_SELECT"), 6);

    for (const char* unknown : {"thlfine", "0:THLFine", "THLFine "}) {
        EXPECT_EQ(ovex_chip_dac_value_set(m_ctx, unknown, 1), OVEX_ERR_HANDLE) << unknown;
        EXPECT_EQ(ovex_chip_sense_dac_sel(m_ctx, unknown), OVEX_ERR_HANDLE) << unknown;
    }
    EXPECT_EQ(State("TPX_DAC_SELECT"), 6);
}

TEST_F(LegacyDacs, NobeNamesCarryTheChipPrefixOnceOnEveryCall) {
    OpenPowered(vboard::BoardKind::kNobe);
    const auto names = Names(false);
    ASSERT_EQ(names.size(), 19u);
    EXPECT_EQ(names[0], "0:PreampOn");
    EXPECT_EQ(names[6], "0:THLCoarse");
    EXPECT_EQ(Names(false), names);

    ASSERT_EQ(ovex_chip_dac_value_set(m_ctx, "0:THLCoarse", 5), OVEX_OK);
    EXPECT_EQ(State("DAC_TH_COARSE"), 5);
    uint16_t value = 0;
    ASSERT_EQ(ovex_chip_dac_value_get(m_ctx, "0:THLCoarse", &value), OVEX_OK);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(ovex_chip_dac_value_set(m_ctx, "THLCoarse", 6), OVEX_ERR_HANDLE);
    EXPECT_EQ(State("DAC_TH_COARSE"), 5);
}

TEST_F(LegacyDacs, SharedTableSplitsSenseDacsAndKeepsAtMost32WhichANobeRefuses) {
    ListedDacs& dacs = MadeUpChip({"A", "S1", "B", "S2"}, "TPX3EFE");
    dacs.sense = {1, 3};
    EXPECT_EQ(Names(false), (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(Names(true), (std::vector<std::string>{"S1", "S2"}));
    // Addressed by the place in the whole list plus 1.
    ASSERT_EQ(ovex_chip_sense_dac_sel(m_ctx, "S2"), OVEX_OK);
    float volts = 0;
    ASSERT_EQ(ovex_chip_dac_measure(m_ctx, "B", &volts), OVEX_OK);
    EXPECT_EQ(volts, 0.5f);
    EXPECT_EQ(dacs.selected, (std::vector<std::uint8_t>{4, 3}));

    // A name lives in the table, which the next call of any handle fills afresh.
    const char* name = nullptr;
    ASSERT_EQ(ovex_chip_dac_name(m_ctx, 0, &name), OVEX_OK);
    dacs.names.clear();
    for (int i = 0; i < 33; ++i) {
        dacs.names.push_back(DacName(i));
    }
    uint32_t count = 0;
    ASSERT_EQ(ovex_chip_dac_count(m_ctx, &count), OVEX_OK);
    EXPECT_EQ(count, 30u);  // 32 rows, two of them sense DACs
    EXPECT_STREQ(name, "D0");
    EXPECT_EQ(ovex_chip_dac_value_set(m_ctx, "D32", 1), OVEX_ERR_HANDLE);
}

TEST_F(LegacyDacs, NobeRefusesMoreThan32DacsAndNamesWithoutRoomForThePrefix) {
    ListedDacs& dacs = MadeUpChip({}, "NOBE");
    for (int i = 0; i < 33; ++i) {
        dacs.names.push_back(DacName(i));
    }
    uint32_t count = 9;
    EXPECT_EQ(ovex_chip_dac_count(m_ctx, &count), OVEX_ERR_HANDLE);
    EXPECT_EQ(count, 9u);
    // "0:", the name and its end need at most 64 bytes.
    const std::string longest(61, 'n');
    dacs.names = {"Short", longest};
    EXPECT_EQ(Names(false), (std::vector<std::string>{"0:Short", "0:" + longest}));
    dacs.names = {"Short", longest + "n"};
    EXPECT_EQ(ovex_chip_dac_count(m_ctx, &count), OVEX_ERR_UNAVAILABLE);
}

}  // namespace
}  // namespace ovex::sdk::testing
