#include "ovex/lua/core/wait_limits.hpp"

#include "ovex/log/log.hpp"

namespace ovex::lua::core {

std::error_code CheckTimeout(std::optional<double> seconds) {
    if (!seconds || (*seconds > 0.0 && *seconds <= kLongestWait)) {
        return {};
    }
    OVEX_LOG_ERROR("Timeout of %g seconds refused: a request waits more than 0 and at most %g.",
                   *seconds, kLongestWait);
    return std::make_error_code(std::errc::invalid_argument);
}

}  // namespace ovex::lua::core
