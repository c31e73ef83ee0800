#pragma once

// The YAML generation of chip configuration files: a sequence `chip` whose entries carry an
// `id`, the sections `params` and `dacs` (one name space, `params` first) and a `matrix` text.

#include "impl/base_loader.hpp"

namespace YAML {
class Node;
}

namespace ovex::configuration::impl {

class BulletLoader : public BaseLoader {
public:
    bool LoadFile(const std::string& path) override;
    bool LoadString(const std::string& text) override;
    KeyTable GetDeviceKeyTable() const override { return {}; }

private:
    // Fills the database from the document and runs PostProcess.
    bool Walk(const YAML::Node& root);
    template <typename Parse>
    bool Load(Parse&& parse);
};

class Tpx1Loader final : public BulletLoader {
public:
    std::string GetTypeName() const override { return "tpx1_yaml"; }
    KeyTable GetChipKeyTable() const override;
    // THL is the coarse step shifted by ten plus the fine step.
    bool PostProcess() override;
};

class Tpx2LoaderYaml final : public BulletLoader {
public:
    std::string GetTypeName() const override { return "tpx2_yaml"; }
    KeyTable GetChipKeyTable() const override;
};

}  // namespace ovex::configuration::impl
