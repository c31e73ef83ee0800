// The module container, the requirement check of modules and item lookup by name.

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "impl/item_set.hpp"
#include "impl/modular.hpp"
#include "modules/device_module.hpp"
#include "sdk_device.hpp"
#include "support/log_capture.hpp"

namespace ovex::sdk::testing {
namespace {

class NamedModule : public DeviceModule {
public:
    explicit NamedModule(std::string name) : m_name(std::move(name)) {}
    NamedModule(std::string name, ModuleRequirements requirements, bool strict)
        : DeviceModule(std::move(requirements), strict), m_name(std::move(name)) {}
    const char* GetName() const override { return m_name.c_str(); }
    using DeviceModule::GetStates;

private:
    std::string m_name;
};

class IFirst : public NamedModule {
    using NamedModule::NamedModule;
};
class ISecond : public NamedModule {
    using NamedModule::NamedModule;
};

ModuleRequirements StatesRequired(States& states, std::vector<std::string> names) {
    ModuleRequirements requirements;
    requirements.states = {{&states, std::move(names)}};
    return requirements;
}

TEST(Modular, ModulesKeepTheirOrderPerInterface) {
    LogCapture log;
    impl::Modular<DeviceModule> device;
    EXPECT_EQ(device.GetModule<IFirst>(), nullptr);
    EXPECT_TRUE(device.GetModules<IFirst>().empty());

    const auto [index_a, a] = device.AddModule<IFirst>(std::make_unique<IFirst>("a"));
    const auto [index_b, b] = device.AddModule<IFirst>(std::make_unique<IFirst>("b"));
    const auto [index_c, c] = device.AddModule<ISecond>(std::make_unique<ISecond>("c"));
    EXPECT_EQ(index_a, 0u);
    EXPECT_EQ(index_b, 1u);
    EXPECT_EQ(index_c, 0u);
    EXPECT_EQ(device.GetModule<IFirst>(), a);
    EXPECT_EQ(device.GetModule<IFirst>(1), b);
    EXPECT_EQ(device.GetModule<IFirst>(2), nullptr);
    EXPECT_EQ(device.GetModule<ISecond>(1), nullptr);
    EXPECT_EQ(device.GetModules<IFirst>(), (std::vector<IFirst*>{a, b}));
    EXPECT_TRUE(log.Contains(ovex::log::kDebug, "Module 'b' added to the device (index 1)."));
}

class FakeStates final : public States {
public:
    using States::States;
    std::error_code Get(std::string_view name, int& value) override {
        if (!Lookup(name)) {
            return std::make_error_code(std::errc::invalid_argument);
        }
        value = 1;
        return {};
    }
    std::error_code Set(std::string_view, int) override { return {}; }
    std::error_code GetRange(std::string_view, range::Range<int>&) override { return {}; }
};

TEST(ItemSet, LooksUpExactNamesAndNamesTheMiss) {
    LogCapture log;
    FakeStates states({"TPX_SHUT_DUR", "TPX_SHUT", "TPX_SHUT"});
    EXPECT_EQ(states.IndexOf("TPX_SHUT"), 1) << "exact length, first match wins";
    EXPECT_EQ(states.IndexOf("TPX_SHUT_DU"), std::nullopt);
    int value = 0;
    EXPECT_EQ(states.Get("X", value), std::errc::invalid_argument);
    EXPECT_TRUE(log.Contains(ovex::log::kError, "state 'X' is not recognized by the device."));
}

TEST(DeviceModule, MissingItemsAreLoggedAndTolerantModulesStillBuild) {
    LogCapture log;
    FakeStates states({"A", "B"});
    NamedModule module("tolerant", StatesRequired(states, {"A", "C", "D"}), false);
    EXPECT_EQ(module.GetStates(), &states);
    const auto lines = log.Lines();
    EXPECT_EQ(lines,
              (std::vector<CapturedLine>{
                  {ovex::log::kError,
                   "Item collection of states doesn't contain 'C' required by the module."},
                  {ovex::log::kError,
                   "Item collection of states doesn't contain 'D' required by the module."}}));
}

TEST(DeviceModule, StrictModulesRefuseMissingItemsAndEmptyRequirements) {
    LogCapture log;
    FakeStates states({"A"});
    try {
        NamedModule module("strict", StatesRequired(states, {"Z"}), true);
        FAIL() << "expected a refusal";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "module requirements not met");
    }
    try {
        NamedModule module("strict", {}, true);
        FAIL() << "expected a refusal";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "no items specified for the module");
    }
    EXPECT_TRUE(log.Contains(ovex::log::kError, "BUG: No items specified for the module."));
    NamedModule tolerant("tolerant", {}, false);
    EXPECT_EQ(tolerant.GetStates(), nullptr);
}

// A module may use the device's item sets to its very end: the sets outlive every module.
TEST(SdkDevice, ModulesGoBeforeTheItemSetsTheyPointTo) {
    class LastLookModule : public IFirst {
    public:
        LastLookModule(States& states, std::size_t& seen)
            : IFirst("last look"), m_states(states), m_seen(seen) {}
        ~LastLookModule() override { m_seen = m_states.Names().size(); }

    private:
        States& m_states;
        std::size_t& m_seen;
    };
    class Device final : public SdkDevice {
    public:
        explicit Device(std::size_t& seen) : SdkDevice(nullptr, {}) {
            m_states = std::make_unique<FakeStates>(std::vector<std::string>{"A", "B", "C"});
            AddModule<IFirst>(std::make_unique<LastLookModule>(*m_states, seen));
        }
        std::error_code LoadItems(LuaState&) override { return {}; }
        std::error_code Epilogue() override { return {}; }
    };
    std::size_t seen = 0;
    std::make_unique<Device>(seen).reset();
    EXPECT_EQ(seen, 3u);
}

}  // namespace
}  // namespace ovex::sdk::testing
