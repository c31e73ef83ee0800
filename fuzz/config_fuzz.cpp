// Any bytes as the library's configuration file: read into the defaults and whatever keys hold,
// with warnings, never an exception or a crash.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "sdk_config.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = "/tmp/ovexsdk-config-fuzz-" + std::to_string(::getpid());
    if (std::FILE* file = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, file);
        std::fclose(file);
    }
    ::setenv("OVEXSDK_CONFIG_PATH", path.c_str(), 1);
    try {
        (void)ovex::sdk::LoadSdkConfig("absent.toml");
    } catch (...) {
        std::abort();  // a configuration file must never stop a context from being made
    }
    return 0;
}
