#include "impl/bullet_loader.hpp"

#include <yaml-cpp/yaml.h>

#include <array>
#include <exception>
#include <filesystem>
#include <sstream>

#include "impl/key_tables.hpp"
#include "impl/number_text.hpp"
#include "ovex/log/log.hpp"

namespace ovex::configuration::impl {

namespace {

constexpr auto kTpx1ChipKeys = std::to_array<KeyEntry>({
    {"Ikrum", kInt},       {"Disc", kInt},    {"Preamp", kInt},  {"BuffAnalogA", kInt},
    {"BuffAnalogB", kInt}, {"Hist", kInt},    {"THLFine", kInt}, {"THLCoarse", kInt},
    {"Vcas", kInt},        {"FBK", kInt},     {"GND", kInt},     {"THS", kInt},
    {"BiasLVDS", kInt},    {"RefLVDS", kInt}, {"A", kDbl},       {"B", kDbl},
    {"W", kDbl},           {"T", kDbl},       {"MinTHL", kDbl},  {"THL", kInt},
    {"matrix", kBytes},
});

constexpr auto kTpx2ChipKeys =
    JoinKeys(kTpx2DacKeys, std::to_array<KeyEntry>({{"A", kDbl},
                                                    {"B", kDbl},
                                                    {"W", kDbl},
                                                    {"T", kDbl},
                                                    {"MinEnergyThreshold", kDbl},
                                                    {"ThresholdCoarseStep", kInt},
                                                    {"matrix", kBytes}}));

// Decimal tokens separated by white space, each cut to its low byte.
std::vector<std::uint8_t> ParseMatrix(const std::string& text) {
    std::vector<std::uint8_t> matrix;
    std::istringstream tokens(text);
    std::string token;
    while (tokens >> token) {
        matrix.push_back(static_cast<std::uint8_t>(TextToInt(token)));
    }
    return matrix;
}

// The key from `params`, else from `dacs`; an undefined node when neither has it.
YAML::Node FindKey(const YAML::Node& entry, const std::string& key) {
    for (const char* section : {"params", "dacs"}) {
        const YAML::Node values = entry[section];
        if (values && values.IsMap() && values[key]) {
            return values[key];
        }
    }
    return YAML::Node(YAML::NodeType::Undefined);
}

ConfigValue Convert(const YAML::Node& entry, const KeyEntry& key) {
    if (key.type == ValueType::kBytes) {
        const YAML::Node matrix = entry[std::string(key.name)];
        return matrix ? ConfigValue{ParseMatrix(matrix.as<std::string>())} : ConfigValue{};
    }
    const YAML::Node node = FindKey(entry, std::string(key.name));
    if (!node.IsDefined()) {
        return {};
    }
    if (key.type == ValueType::kInteger) {
        return node.as<std::int32_t>();
    }
    return node.as<double>();
}

}  // namespace

template <typename Parse>
bool BulletLoader::Load(Parse&& parse) {
    try {
        m_loaded = Walk(parse());
    } catch (const std::exception& error) {
        OVEX_LOG_DEBUG("Configuration file parsing failed: %s", error.what());
        m_loaded = false;
    }
    return m_loaded = m_loaded && Finish();
}

bool BulletLoader::LoadFile(const std::string& path) {
    Reset();
    const std::filesystem::path extension = std::filesystem::path(path).extension();
    if (extension != ".yml" && extension != ".yaml") {
        OVEX_LOG_DEBUG("Only .yaml or .yml files are supported by this loader.");
        return false;
    }
    m_source = path;
    return Load([&] { return YAML::LoadFile(path); });
}

bool BulletLoader::LoadString(const std::string& text) {
    Reset();
    return Load([&] { return YAML::Load(text); });
}

bool BulletLoader::Walk(const YAML::Node& root) {
    const YAML::Node chips = root["chip"];
    if (!chips) {
        throw YAML::KeyNotFound(root.Mark(), std::string("chip"));
    }
    for (const YAML::Node& entry : chips) {
        const std::string id = entry["id"].as<std::string>();
        const auto [chip, inserted] = m_chips.try_emplace(id);
        if (!inserted) {
            OVEX_LOG_ERROR("Cannot insert chip signature '%s' into database.", id.c_str());
            return false;
        }
        for (const KeyEntry& key : GetChipKeyTable()) {
            if (!chip->second.try_emplace(std::string(key.name), Convert(entry, key)).second) {
                OVEX_LOG_ERROR("Cannot insert chip value '%s' for chip '%s' into database.",
                               std::string(key.name).c_str(), id.c_str());
                return false;
            }
        }
    }
    return true;
}

KeyTable Tpx1Loader::GetChipKeyTable() const {
    return kTpx1ChipKeys;
}

bool Tpx1Loader::PostProcess() {
    for (auto& [id, keys] : m_chips) {
        const auto thl = keys.find("THL");
        const auto coarse = keys.find("THLCoarse");
        const auto fine = keys.find("THLFine");
        if (thl == keys.end() || coarse == keys.end() || fine == keys.end() ||
            !std::holds_alternative<std::int32_t>(coarse->second) ||
            !std::holds_alternative<std::int32_t>(fine->second)) {
            return false;
        }
        thl->second = static_cast<std::int32_t>(
            (static_cast<std::uint32_t>(std::get<std::int32_t>(coarse->second)) << 10) +
            static_cast<std::uint32_t>(std::get<std::int32_t>(fine->second)));
    }
    return true;
}

KeyTable Tpx2LoaderYaml::GetChipKeyTable() const {
    return kTpx2ChipKeys;
}

}  // namespace ovex::configuration::impl
