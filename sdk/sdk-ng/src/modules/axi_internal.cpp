#include "modules/axi_internal.hpp"

#include <exception>
#include <system_error>

#include "api_utils.hpp"
#include "context.hpp"
#include "ovex/log/log.hpp"

namespace ovex::sdk {

namespace {

// The legacy interface reads a failed access's own code from the number: its value plus 100.
int AccessResult(const std::error_code& ec) noexcept {
    return ec ? ec.value() + 100 : OVEXSDK_OK;
}

// Runs `access` on the device's first AXI-Lite module. The frame carries only the refusals; the
// result of an access that was made goes to `result`. Exceptions are the access's own failure
// here, so they are caught before the frame's barrier and give -14 with the access's words.
template <typename Access>
ovexsdk_err_code OnAxiLite(Context& context, const char* verb, const char* failure, int& result,
                           Access access) {
    if (!context.Device()) {
        OVEX_LOG_ERROR("Device is not initialized/open.");
        return OVEXSDK_ERR_NO_DEVICE;
    }
    try {
        auto* axi = context.Device()->GetModule<IAxiLite>();
        if (axi == nullptr) {
            OVEX_LOG_ERROR("Device doesn't have an AXILite module.");
            return OVEXSDK_ERR_FAILED;
        }
        const std::error_code ec = access(*axi);
        if (ec) {
            OVEX_LOG_EC(ovex::log::kError, "%s - %s: %s", ec, failure);
        }
        result = AccessResult(ec);
        return OVEXSDK_OK;
    } catch (const std::exception& e) {
        OVEX_LOG_ERROR("AXI %s call failed with an exception: %s.", verb, e.what());
    } catch (...) {
        OVEX_LOG_ERROR("AXI %s call failed with an unknown exception.", verb);
    }
    return OVEXSDK_ERR_FAILED;
}

ovexsdk_err_code AxiRead(Context& context, std::uint32_t address, std::uint32_t* value,
                         int* result) {
    if (value == nullptr) {
        return OVEXSDK_ERR_INVALID;
    }
    return OnAxiLite(context, "read", "Failed to read from AXI", *result,
                     [&](IAxiLite& axi) { return axi.Read(address, *value); });
}

ovexsdk_err_code AxiWrite(Context& context, std::uint32_t address, std::uint32_t value,
                          int* result) {
    return OnAxiLite(context, "write", "Failed to write data to AXI", *result,
                     [&](IAxiLite& axi) { return axi.Write(address, value); });
}

}  // namespace

int ovexsdk_axi_read(ovexsdk_dev_ctx* ctx, std::uint32_t address, std::uint32_t* value) {
    int result = OVEXSDK_OK;
    const ovexsdk_err_code refusal =
        OVEXSDK_FRAME(&Exclusive<&AxiRead>::Call, ctx, address, value, &result);
    return refusal != OVEXSDK_OK ? refusal : result;
}

int ovexsdk_axi_write(ovexsdk_dev_ctx* ctx, std::uint32_t address, std::uint32_t value) {
    int result = OVEXSDK_OK;
    const ovexsdk_err_code refusal =
        OVEXSDK_FRAME(&Exclusive<&AxiWrite>::Call, ctx, address, value, &result);
    return refusal != OVEXSDK_OK ? refusal : result;
}

}  // namespace ovex::sdk
