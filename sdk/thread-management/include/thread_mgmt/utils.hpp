#pragma once

#include <cstddef>

namespace ovex::thread {

// Logs "<prefix>: <system text of errno>" at error severity.
void LogSystemError(const char* prefix);

// The system's page size, asked once and kept.
std::size_t PageSize();

}  // namespace ovex::thread
