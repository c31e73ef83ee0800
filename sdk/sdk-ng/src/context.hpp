#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "acquisition_result.hpp"
#include "ovexsdk.h"
#include "sdk_config.hpp"
#include "sdk_device.hpp"
#include "sdk_logger.hpp"
#include "sdk_lua_state.hpp"
#include "usb_locator.hpp"

namespace ovex::sdk {

// Everything the library holds for one device, built inside the host's ovexsdk_dev_ctx record.
// The host serialises its calls on one context; its callbacks, which run on the library's
// threads, may call too. So the calls that open, close, power or ask about the device hold the
// device mutex, and a context being released refuses the calls that still reach it.
class Context {
public:
    static constexpr std::size_t kLogQueueCapacity = 512;
    static constexpr const char* kConfigFile = "ovexsdk_config.toml";

    // Starts the logger, then builds the Lua state, then reads the configuration.
    explicit Context(UsbLocator locator);
    // Releases the device object, the Lua state and the configuration holding the device mutex,
    // then stops the logger and releases it.
    ~Context();

    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    const UsbLocator& Locator() const noexcept { return m_locator; }
    void ReplaceLocator(UsbLocator locator) { m_locator = std::move(locator); }

    std::unique_ptr<SdkDevice>& Device() noexcept { return m_device; }
    LuaState* Lua() const noexcept { return m_lua.get(); }
    const SdkConfig& Config() const noexcept { return *m_config; }
    Logger& Log() const noexcept { return *m_logger; }

    std::mutex& DeviceMutex() noexcept { return m_device_mutex; }

    // Marks the context as being released; false if it already was.
    bool BeginRelease() noexcept { return !m_releasing.exchange(true); }
    bool Releasing() const noexcept { return m_releasing.load(); }

    std::uint8_t ProcessingMode() const noexcept { return m_processing_mode; }
    void SetProcessingMode(std::uint8_t mode) noexcept { m_processing_mode = mode; }
    AcquisitionResult& Acquisition() noexcept { return m_acquisition; }

    const std::string& LastException() const noexcept { return m_last_exception; }
    void SetLastException(std::string text) { m_last_exception = std::move(text); }

private:
    std::uint8_t m_processing_mode = 1;
    AcquisitionResult m_acquisition;
    std::string m_last_exception = "no error";
    UsbLocator m_locator;
    std::unique_ptr<SdkDevice> m_device;
    std::unique_ptr<LuaState> m_lua;
    std::unique_ptr<SdkConfig> m_config;
    std::unique_ptr<Logger> m_logger;
    std::mutex m_device_mutex;
    std::atomic<bool> m_releasing{false};
};

// The record holds the four bytes "OVEX" at its start while a context lives in it; the Context
// follows at the first suitably aligned address, since the host guarantees 4-byte alignment only.
namespace record {

bool HasMagic(const ovexsdk_dev_ctx* handle) noexcept;

// Builds a Context in the record and then marks it live.
Context& Create(ovexsdk_dev_ctx* handle, UsbLocator locator);

// The Context of a record that HasMagic.
Context& Get(ovexsdk_dev_ctx* handle) noexcept;

// Destroys the Context and clears the mark, so that a released record is refused, not used.
void Destroy(ovexsdk_dev_ctx* handle) noexcept;

}  // namespace record

}  // namespace ovex::sdk
