#include "modules/nobe_backend.hpp"

namespace ovex::sdk {

namespace {

constexpr std::uint8_t kExternalEdge = 5;
constexpr std::uint8_t kEdgeInput = 1;

}  // namespace

NobeBackend::NobeBackend(Commands* commands) : m_pipeline(commands) {}

std::error_code NobeBackend::SetTriggerInput(std::uint8_t mode) {
    if (mode == kExternalEdge) {
        m_sync.input.type = kEdgeInput;
        m_sync.input.enabled = 1;
    } else {
        m_sync.input.enabled = 0;
    }
    return {};
}

}  // namespace ovex::sdk
