#include "thread_mgmt/utils.hpp"

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "ovex/log/log.hpp"

namespace ovex::thread {

void LogSystemError(const char* prefix) {
    const int error = errno;
    const std::string text = std::system_category().message(error);
    OVEX_LOG_ERROR("%s: %s", prefix, text.c_str());
}

std::size_t PageSize() {
    static const std::size_t page_size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return page_size;
}

}  // namespace ovex::thread
