#include "ovex/config_loader/config_loader.hpp"

#include "impl/bullet_loader.hpp"
#include "impl/gravel_loader.hpp"
#include "ovex/log/log.hpp"

namespace ovex::configuration {

using impl::BaseLoader;

struct ConfigLoader::State {
    std::int32_t index = -1;
    std::vector<std::unique_ptr<BaseLoader>> parsers;
};

namespace {

const ConfigValue kEmptyValue{};

std::vector<std::unique_ptr<BaseLoader>> MakeParsers() {
    std::vector<std::unique_ptr<BaseLoader>> parsers;
    parsers.push_back(std::make_unique<impl::Tpx1Loader>());
    parsers.push_back(std::make_unique<impl::Tpx2Loader>());
    parsers.push_back(std::make_unique<impl::Tpx2LoaderYaml>());
    parsers.push_back(std::make_unique<impl::Tpx3Loader>());
    return parsers;
}

void LogInvalid() {
    OVEX_LOG_ERROR("Operation failed, config loader is in invalid state.");
}

}  // namespace

template <typename Load>
void ConfigLoader::Detect(Load&& load) {
    m_state = std::make_unique<State>();
    m_state->parsers = MakeParsers();
    for (std::size_t i = 0; i < m_state->parsers.size(); ++i) {
        BaseLoader& parser = *m_state->parsers[i];
        if (load(parser)) {
            OVEX_LOG_DEBUG("Parser of type '%s' will be used for configuration file.",
                           parser.GetTypeName().c_str());
            m_state->index = static_cast<std::int32_t>(i);
            return;
        }
        OVEX_LOG_DEBUG("Parser of type '%s' cannot parse input file.",
                       parser.GetTypeName().c_str());
    }
}

ConfigLoader::ConfigLoader(const std::filesystem::path& path) {
    const std::string file = path.string();
    Detect([&](BaseLoader& parser) { return parser.LoadFile(file); });
}

ConfigLoader::ConfigLoader(FromText, std::string_view text) {
    const std::string content(text);
    Detect([&](BaseLoader& parser) { return parser.LoadString(content); });
}

ConfigLoader::~ConfigLoader() = default;
ConfigLoader::ConfigLoader(ConfigLoader&&) noexcept = default;
ConfigLoader& ConfigLoader::operator=(ConfigLoader&&) noexcept = default;

const BaseLoader* ConfigLoader::Chosen() const {
    if (!IsValid()) {
        LogInvalid();
        return nullptr;
    }
    return m_state->parsers[static_cast<std::size_t>(m_state->index)].get();
}

bool ConfigLoader::IsValid() const {
    return m_state && m_state->index >= 0;
}

std::int32_t ConfigLoader::GetChipCount() const {
    const BaseLoader* parser = Chosen();
    return parser ? static_cast<std::int32_t>(parser->Chips().size()) : -1;
}

std::string ConfigLoader::GetChipSignature(std::int32_t index) const {
    const BaseLoader* parser = Chosen();
    if (!parser) {
        return {};
    }
    const auto count = static_cast<std::int32_t>(parser->Chips().size());
    if (index < 0 || index >= count) {
        OVEX_LOG_ERROR("Missing chip signature, chip count: %d, expected index: %d", count, index);
        return {};
    }
    return std::next(parser->Chips().begin(), index)->first;
}

std::vector<std::string> ConfigLoader::GetChipSignatures() const {
    std::vector<std::string> ids;
    if (const BaseLoader* parser = Chosen()) {
        for (const auto& [id, keys] : parser->Chips()) {
            ids.push_back(id);
        }
    }
    return ids;
}

std::vector<std::string> ConfigLoader::GetChipKeys() const {
    const BaseLoader* parser = Chosen();
    return parser ? parser->GetChipKeyNames() : std::vector<std::string>{};
}

std::vector<std::string> ConfigLoader::GetDeviceKeys() const {
    const BaseLoader* parser = Chosen();
    return parser ? parser->GetDeviceKeyNames() : std::vector<std::string>{};
}

std::vector<std::string> ConfigLoader::GetDacKeys() const {
    if (Chosen()) {
        OVEX_LOG_WARN("GetDacKeys not yet implemented.");
    }
    return {};
}

std::string ConfigLoader::GetParserName() const {
    const BaseLoader* parser = Chosen();
    return parser ? parser->GetTypeName() : std::string{};
}

const ConfigValue* ConfigLoader::GetChipValue(std::string_view chip_id,
                                              std::string_view key) const {
    const BaseLoader* parser = Chosen();
    if (!parser) {
        return &kEmptyValue;
    }
    const auto chip = parser->Chips().find(chip_id);
    if (chip == parser->Chips().end()) {
        return &kEmptyValue;
    }
    const auto value = chip->second.find(key);
    return value == chip->second.end() ? &kEmptyValue : &value->second;
}

const ConfigValue* ConfigLoader::GetDeviceValue(std::string_view key) const {
    const BaseLoader* parser = Chosen();
    if (!parser) {
        return &kEmptyValue;
    }
    const auto value = parser->Device().find(key);
    return value == parser->Device().end() ? &kEmptyValue : &value->second;
}

std::optional<ConfigLoader> FindChipConfiguration(std::string_view chip_id,
                                                  const std::filesystem::path& directory) {
    for (const char* extension : {".yaml", ".yml", ".xml"}) {
        ConfigLoader loader(directory / (std::string(chip_id) + extension));
        if (loader.IsValid()) {
            return loader;
        }
    }
    return std::nullopt;
}

}  // namespace ovex::configuration
