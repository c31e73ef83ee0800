#pragma once

// The shared capture of logged lines, under the names these tests use. Angle brackets: the
// shared header has this file's name.

#include <log_capture.hpp>

namespace ovex::sdk::testing {

using ovex::testing::CapturedLine;
using ovex::testing::LogCapture;

}  // namespace ovex::sdk::testing
