#include "tpx3_pipeline/common.hpp"

namespace tpx3_pipeline::common {

DataEntry DataEntry::Control(EntryType type) {
    auto arena = std::make_shared<Arena>(Arena::Settings{Arena::kControlSize, Arena::kControlSize});
    return {type, {std::move(arena), {}}};
}

}  // namespace tpx3_pipeline::common
