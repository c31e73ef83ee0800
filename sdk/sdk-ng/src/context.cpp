#include "context.hpp"

#include <cstring>
#include <new>
#include <stdexcept>

#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

constexpr std::uint32_t MagicWord() noexcept {
    // The bytes 'O','V','E','X' in memory order, compared as one word.
    return std::uint32_t{'O'} | std::uint32_t{'V'} << 8 | std::uint32_t{'E'} << 16 |
           std::uint32_t{'X'} << 24;
}

constexpr std::size_t kMagicSize = sizeof(std::uint32_t);

static_assert(sizeof(ovexsdk_dev_ctx) == 1024, "the host record is 1024 bytes");
static_assert(alignof(ovexsdk_dev_ctx) == 4, "the host record is 4-byte aligned");
static_assert(alignof(Context) >= 4 && alignof(Context) <= 16);
// Worst case: the record is only 4-byte aligned, so up to alignof(Context) - 4 bytes of padding
// stand between the magic and the Context.
static_assert(kMagicSize + (alignof(Context) - 4) + sizeof(Context) <= sizeof(ovexsdk_dev_ctx),
              "Context must fit into the host record");

void* Storage(ovexsdk_dev_ctx* handle) noexcept {
    const auto start = reinterpret_cast<std::uintptr_t>(handle) + kMagicSize;
    const auto aligned = (start + alignof(Context) - 1) & ~(std::uintptr_t{alignof(Context)} - 1);
    return reinterpret_cast<void*>(aligned);
}

std::unique_ptr<SdkConfig> MakeConfig() {
    auto config = std::unique_ptr<SdkConfig>(new (std::nothrow)
                                                 SdkConfig(LoadSdkConfig(Context::kConfigFile)));
    if (!config) {
        throw std::runtime_error("Config creation failed: Out of memory.");
    }
    return config;
}

}  // namespace

Context::Context(UsbLocator locator)
    : m_locator(std::move(locator)), m_logger(std::make_unique<Logger>(kLogQueueCapacity)) {
    m_lua = std::make_unique<LuaState>();
    m_config = MakeConfig();
}

Context::~Context() {
    {
        const std::lock_guard lock(m_device_mutex);
        m_device.reset();
        m_lua.reset();
        m_config.reset();
    }
    // The logger stays reachable until its thread has ended: a callback that registers during
    // the release meets a logger that ignores it, not one that is gone.
    m_logger->Stop();
    m_logger.reset();
}

namespace record {

bool HasMagic(const ovexsdk_dev_ctx* handle) noexcept {
    if (handle == nullptr) {
        return false;
    }
    std::uint32_t word = 0;
    std::memcpy(&word, handle, sizeof(word));
    return word == MagicWord();
}

Context& Create(ovexsdk_dev_ctx* handle, UsbLocator locator) {
    auto* context = new (Storage(handle)) Context(std::move(locator));
    const std::uint32_t magic = MagicWord();
    std::memcpy(handle, &magic, sizeof(magic));
    return *context;
}

Context& Get(ovexsdk_dev_ctx* handle) noexcept {
    return *std::launder(static_cast<Context*>(Storage(handle)));
}

void Destroy(ovexsdk_dev_ctx* handle) noexcept {
    Get(handle).~Context();
    std::memset(handle, 0, kMagicSize);
}

}  // namespace record

}  // namespace ovex::sdk
