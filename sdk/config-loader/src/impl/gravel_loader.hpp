#pragma once

// The XML generation of chip configuration files: below the root element `xml`, `Settings`
// holds the device keys and every element that isn't reserved is a chip named by its id.

#include "impl/base_loader.hpp"

namespace pugi {
class xml_document;
class xml_node;
}  // namespace pugi

namespace ovex::configuration::impl {

class GravelLoader : public BaseLoader {
public:
    bool LoadFile(const std::string& path) override;
    bool LoadString(const std::string& text) override;

private:
    bool Walk(const pugi::xml_document& document);
    bool LoadSettings(const pugi::xml_node& settings);
    bool LoadChip(const pugi::xml_node& element);
};

class Tpx2Loader final : public GravelLoader {
public:
    std::string GetTypeName() const override { return "tpx2_xml"; }
    KeyTable GetChipKeyTable() const override;
    KeyTable GetDeviceKeyTable() const override;
};

class Tpx3Loader final : public GravelLoader {
public:
    std::string GetTypeName() const override { return "tpx3_xml"; }
    KeyTable GetChipKeyTable() const override;
    KeyTable GetDeviceKeyTable() const override;
};

}  // namespace ovex::configuration::impl
