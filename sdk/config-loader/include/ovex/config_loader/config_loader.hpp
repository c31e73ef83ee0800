#pragma once

// The front of the chip configuration files: a loader tries each known file generation in a
// fixed order and offers the key database of the first one that takes the input whole.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ovex/config_loader/config_value.hpp"

namespace ovex::configuration {

namespace impl {
class BaseLoader;
}

// Selects the constructor that parses a text instead of opening a file.
struct FromText {};
inline constexpr FromText kFromText{};

class ConfigLoader {
public:
    explicit ConfigLoader(const std::filesystem::path& path);
    ConfigLoader(FromText, std::string_view text);
    ~ConfigLoader();
    ConfigLoader(ConfigLoader&&) noexcept;
    ConfigLoader& operator=(ConfigLoader&&) noexcept;
    ConfigLoader(const ConfigLoader&) = delete;
    ConfigLoader& operator=(const ConfigLoader&) = delete;

    bool IsValid() const;
    // -1 when invalid.
    std::int32_t GetChipCount() const;
    std::string GetChipSignature(std::int32_t index) const;
    std::vector<std::string> GetChipSignatures() const;
    std::vector<std::string> GetChipKeys() const;
    std::vector<std::string> GetDeviceKeys() const;
    std::vector<std::string> GetDacKeys() const;
    std::string GetParserName() const;
    // Never null: a chip or key that isn't there gives a shared empty value.
    const ConfigValue* GetChipValue(std::string_view chip_id, std::string_view key) const;
    const ConfigValue* GetDeviceValue(std::string_view key) const;

private:
    struct State;
    template <typename Load>
    void Detect(Load&& load);
    const impl::BaseLoader* Chosen() const;

    std::unique_ptr<State> m_state;
};

// The configuration of a chip: "<id>.yaml", "<id>.yml", then "<id>.xml" in `directory`; the
// first file that loads as valid, or nothing. With nothing the chip keeps its defaults, which the
// caller announces once it has written them.
std::optional<ConfigLoader> FindChipConfiguration(std::string_view chip_id,
                                                  const std::filesystem::path& directory = ".");

}  // namespace ovex::configuration
