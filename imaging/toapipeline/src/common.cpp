#include "tpx3_pipeline/common.hpp"

namespace tpx3_pipeline::common {

DataEntry DataEntry::Control(EntryType type) {
    auto arena = std::make_shared<Arena>(Arena::Settings{Arena::kControlSize, Arena::kControlSize});
    return {type, {std::move(arena), {}}};
}

void ExtendedBlock::ClearForReuse(ExtendedBlock& block) noexcept {
    block.records.reset();
    block.count = 0;
    block.start_toa = 0;
    for (auto& times : block.tdc) {
        times.clear();
    }
    block.line_end = false;
}

}  // namespace tpx3_pipeline::common
