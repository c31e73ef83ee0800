#include "impl/gravel_loader.hpp"

#include <pugixml.hpp>

#include <array>
#include <exception>
#include <sstream>

#include "impl/base64.hpp"
#include "impl/key_tables.hpp"
#include "impl/number_text.hpp"
#include "ovex/log/log.hpp"

namespace ovex::configuration::impl {

namespace {

constexpr std::size_t kMatrixBytes = 256 * 256;

constexpr auto kTpx2ChipKeys = JoinKeys(std::to_array<KeyEntry>({{"Polarity", kBool},
                                                                 {"SensorType", kText},
                                                                 {"SensorThickness", kInt},
                                                                 {"SensorPitch", kInt}}),
                                        kTpx2DacKeys,
                                        std::to_array<KeyEntry>({{"ThresholdCalibCoeffA", kDbl},
                                                                 {"ThresholdCalibCoeffB", kDbl},
                                                                 {"ThresholdCalibCoeffC", kDbl},
                                                                 {"ThresholdCalibCoeffT", kDbl},
                                                                 {"MinThreshold", kDbl},
                                                                 {"ThresholdCoarseStep", kInt},
                                                                 {"matrix", kBytes}}));
constexpr auto kTpx2DeviceKeys =
    std::to_array<KeyEntry>({{"Bias", kInt}, {"SensorRefreshEnabled", kBool}});

constexpr auto kTpx3ChipKeys = std::to_array<KeyEntry>({
    {"Polarity", kBool},
    {"SensorType", kText},
    {"SensorThickness", kInt},
    {"SensorPitch", kInt},
    {"PreampOn", kInt},
    {"PreampOff", kInt},
    {"NCas", kInt},
    {"Ikrum", kInt},
    {"Fbk", kInt},
    {"Threshold", kDbl},
    {"THLFine", kInt},
    {"THLCoarse", kInt},
    {"DiscS1On", kInt},
    {"DiscS1Off", kInt},
    {"DiscS2On", kInt},
    {"DiscS2Off", kInt},
    {"PixelDac", kInt},
    {"TpBuffIn", kInt},
    {"TpBuffOut", kInt},
    {"TpCoarse", kInt},
    {"TpFine", kInt},
    {"CpPll", kInt},
    {"PllVCntrl", kInt},
    {"ThresholdCalibCoeffA", kDbl},
    {"ThresholdCalibCoeffB", kDbl},
    {"MinThreshold", kDbl},
    {"twc", kInt},
    {"twd", kInt},
    {"matrix", kBytes},
});
constexpr auto kTpx3DeviceKeys = std::to_array<KeyEntry>({{"SensorRefreshEnabled", kBool}});

const char* TypeName(ValueType type) {
    switch (type) {
        case ValueType::kEmpty:
            return "empty";
        case ValueType::kInteger:
            return "integer";
        case ValueType::kDouble:
            return "double";
        case ValueType::kBoolean:
            return "boolean";
        case ValueType::kString:
            return "string";
        case ValueType::kBytes:
            return "bytes";
    }
    return "unknown";
}

// Anything but "true" reads as false.
bool TextToBool(const char* text) {
    std::istringstream stream(text);
    bool value = false;
    stream >> std::boolalpha >> value;
    return value;
}

// The value of a scalar type from the element's text.
ConfigValue Convert(const pugi::xml_node& element, ValueType type) {
    const std::string text = element.text().get();
    switch (type) {
        case ValueType::kBoolean:
            return TextToBool(text.c_str());
        case ValueType::kInteger:
            return TextToInt(text);
        case ValueType::kDouble:
            return TextToDouble(text);
        case ValueType::kString:
            return text;
        default:
            return {};
    }
}

bool IsReserved(std::string_view name) {
    return name == "Layout" || name == "Parameters" || name == "Info";
}

}  // namespace

bool GravelLoader::LoadFile(const std::string& path) {
    Reset();
    pugi::xml_document document;
    const pugi::xml_parse_result result = document.load_file(path.c_str());
    if (!result) {
        OVEX_LOG_DEBUG("Cannot parse file '%s': %s", path.c_str(), result.description());
        return false;
    }
    m_source = path;
    return m_loaded = Walk(document);
}

bool GravelLoader::LoadString(const std::string& text) {
    Reset();
    pugi::xml_document document;
    const pugi::xml_parse_result result = document.load_string(text.c_str());
    if (!result) {
        OVEX_LOG_DEBUG("Cannot parse content '%s': %s", text.c_str(), result.description());
        return false;
    }
    return m_loaded = Walk(document);
}

bool GravelLoader::Walk(const pugi::xml_document& document) {
    try {
        for (const pugi::xml_node& child : document.child("xml").children()) {
            // Comments and text between the elements carry nothing.
            if (child.type() != pugi::node_element || IsReserved(child.name())) {
                continue;
            }
            const bool loaded = std::string_view(child.name()) == "Settings" ? LoadSettings(child)
                                                                             : LoadChip(child);
            if (!loaded) {
                return false;
            }
        }
    } catch (const std::exception& error) {
        OVEX_LOG_DEBUG("Configuration file parsing failed: %s", error.what());
        return false;
    }
    return Finish();
}

bool GravelLoader::LoadSettings(const pugi::xml_node& settings) {
    for (const KeyEntry& key : GetDeviceKeyTable()) {
        const std::string name(key.name);
        const auto [value, inserted] = m_device.try_emplace(name);
        if (!inserted) {
            OVEX_LOG_ERROR("Cannot insert key '%s' into database.", name.c_str());
            return false;
        }
        if (key.type != ValueType::kInteger && key.type != ValueType::kBoolean) {
            OVEX_LOG_ERROR("Unsupported device parameter: '%s' of type %s.", name.c_str(),
                           TypeName(key.type));
            return false;
        }
        if (const pugi::xml_node element = settings.child(name.c_str())) {
            value->second = Convert(element, key.type);
        }
    }
    return true;
}

bool GravelLoader::LoadChip(const pugi::xml_node& element) {
    const std::string id = element.name();
    const auto [chip, inserted] = m_chips.try_emplace(id);
    if (!inserted) {
        OVEX_LOG_ERROR("Cannot insert chip signature '%s' into database.", id.c_str());
        return false;
    }
    for (const KeyEntry& key : GetChipKeyTable()) {
        const std::string name(key.name);
        const auto [value, key_inserted] = chip->second.try_emplace(name);
        if (!key_inserted) {
            OVEX_LOG_ERROR("Cannot insert key '%s' for chip '%s' into database.", name.c_str(),
                           id.c_str());
            return false;
        }
        if (key.type == ValueType::kBytes) {
            const pugi::xml_node matrix = element.child("BinaryPixelCfg");
            if (!matrix) {
                OVEX_LOG_ERROR("Cannot obtain pixel matrix from configuration matrix");
                return false;
            }
            auto bytes = DecodeBase64(matrix.text().get());
            if (!bytes || bytes->size() != kMatrixBytes) {
                OVEX_LOG_ERROR("Base64 decoding has failed.");
                return false;
            }
            value->second = std::move(*bytes);
        } else if (key.type == ValueType::kEmpty) {
            OVEX_LOG_ERROR("Unsupported chip parameter: '%s', of type: '%s' for chip '%s'",
                           name.c_str(), TypeName(key.type), id.c_str());
            return false;
        } else if (const pugi::xml_node child = element.child(name.c_str())) {
            value->second = Convert(child, key.type);
        }
    }
    return true;
}

KeyTable Tpx2Loader::GetChipKeyTable() const {
    return kTpx2ChipKeys;
}

KeyTable Tpx2Loader::GetDeviceKeyTable() const {
    return kTpx2DeviceKeys;
}

KeyTable Tpx3Loader::GetChipKeyTable() const {
    return kTpx3ChipKeys;
}

KeyTable Tpx3Loader::GetDeviceKeyTable() const {
    return kTpx3DeviceKeys;
}

}  // namespace ovex::configuration::impl
