#include "ovex/usb/lua_bindings.hpp"

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "ovex/log/log.hpp"
#include "ovex/lua/bind/bind.hpp"
#include "ovex/lua/core/lua_core.hpp"
#include "ovex/lua/core/values.hpp"
#include "ovex/lua/core/wait_limits.hpp"
#include "ovex/named_type.hpp"
#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"

namespace ovex::usb::device {
namespace {

namespace bind = lua::bind;

// Seconds a request of a script may take unless the script says otherwise.
constexpr double kScriptTimeout = 10.0;
// bmRequestType of a script's request: vendor type, device recipient; ControlIn sets bit 7.
constexpr std::uint8_t kVendorRequestType = 0x40;

struct CommandIdTag {};
struct ValueTag {};
struct IndexTag {};
struct LengthTag {};
using CommandId = NamedType<std::uint8_t, CommandIdTag>;
using WValue = NamedType<std::uint16_t, ValueTag>;
using WIndex = NamedType<std::uint16_t, IndexTag>;
using WLength = NamedType<std::uint16_t, LengthTag>;

// A request as a script composes it. The buffer belongs to a MemSlab that the userdata keeps
// alive.
struct ScriptCommand {
    CommandId command;
    WValue value;
    WIndex index;
    std::span<std::uint8_t> buffer;
};

struct EgressCommand {
    ScriptCommand command;
};

struct IngressCommand {
    ScriptCommand command;
};

template <typename Id>
Id EmptyId() {
    return Id();
}

template <typename Id>
Id IdOf(typename Id::ValueType value) {
    return Id(value);
}

// One of the kMaxScriptContexts places for a libusb context of a script, held for as long as
// that libusb context lives: by the script's UsbContext and by every device enumerated through
// it. Each context has an event thread and file descriptors of its own, and libusb ends the
// process when it runs out of them.
class ContextPlace {
public:
    // A place, or null when all are taken.
    static std::shared_ptr<ContextPlace> Take() {
        int taken = s_taken.load();
        do {
            if (taken >= kMaxScriptContexts) {
                return nullptr;
            }
        } while (!s_taken.compare_exchange_weak(taken, taken + 1));
        return std::shared_ptr<ContextPlace>(new ContextPlace());
    }
    ~ContextPlace() { s_taken.fetch_sub(1); }
    ContextPlace(const ContextPlace&) = delete;
    ContextPlace& operator=(const ContextPlace&) = delete;

private:
    ContextPlace() = default;
    static inline std::atomic<int> s_taken{0};
};

// The place goes last, once the context's libusb resources are released.
struct ScriptContext {
    std::shared_ptr<ContextPlace> place;
    UsbContext context;
};

struct ScriptDevice {
    std::shared_ptr<ContextPlace> place;
    UsbDevice device;
};

std::variant<ScriptContext, std::error_code> NewContext(lua_State* L) {
    auto place = ContextPlace::Take();
    if (!place) {
        // Contexts that scripts dropped may only be waiting for the collector.
        lua_gc(L, LUA_GCCOLLECT);
        place = ContextPlace::Take();
    }
    if (!place) {
        OVEX_LOG_ERROR(
            "Scripts hold %d USB contexts, the most they may; release one to make another.",
            kMaxScriptContexts);
        return std::make_error_code(std::errc::resource_unavailable_try_again);
    }
    return ScriptContext{std::move(place), UsbContext()};
}

std::vector<std::shared_ptr<UsbDevice>> EnumDevices(const ScriptContext& context,
                                                    std::uint16_t vendor_id,
                                                    std::uint16_t product_id) {
    std::vector<std::shared_ptr<UsbDevice>> shared;
    for (UsbDevice& device : context.context.EnumerateDevices(vendor_id, product_id)) {
        auto held = std::make_shared<ScriptDevice>(ScriptDevice{context.place, std::move(device)});
        shared.emplace_back(held, &held->device);
    }
    return shared;
}

DeviceInfo NewInfo() {
    return {};
}

// new(command), new(command, span), new(command, value, index, span).
int NewScriptCommand(lua_State* L) {
    ScriptCommand command;
    int span_index = 0;
    switch (lua_gettop(L)) {
        case 1:
            command.command = bind::Check<CommandId>(L, 1);
            break;
        case 2:
            command.command = bind::Check<CommandId>(L, 1);
            span_index = 2;
            break;
        case 4:
            command.command = bind::Check<CommandId>(L, 1);
            command.value = bind::Check<WValue>(L, 2);
            command.index = bind::Check<WIndex>(L, 3);
            span_index = 4;
            break;
        default:
            return luaL_error(L, "%s", bind::message::kNoMatchingOverload);
    }
    if (span_index != 0) {
        command.buffer = lua::core::CheckByteSpan(L, span_index);
    }
    bind::PushObject(L, command);
    if (span_index != 0) {
        bind::KeepAlive(L, -1, span_index);
    }
    return 1;
}

unsigned CommandCode(const ScriptCommand& command) {
    return command.command.get();
}
unsigned CommandValue(const ScriptCommand& command) {
    return command.value.get();
}
unsigned CommandIndex(const ScriptCommand& command) {
    return command.index.get();
}

// A new ByteSpan over the command's bytes, which keeps the command (and so its block) alive.
int CommandBuffer(lua_State* L) {
    const ScriptCommand& command = bind::Check<ScriptCommand>(L, 1);
    bind::PushObject(L, command.buffer);
    bind::KeepAlive(L, -1, 1);
    return 1;
}

template <typename Directed>
int NewDirected(lua_State* L) {
    bind::PushObject(L, Directed{bind::Check<ScriptCommand>(L, 1)});
    bind::KeepAlive(L, -1, 1);
    return 1;
}

ControlSetup SetupOf(const ScriptCommand& command) {
    return {kVendorRequestType, command.command.get(), command.value.get(), command.index.get(), 0};
}

std::error_code SendOut(const EgressCommand& egress, UsbDevice& device,
                        std::optional<double> timeout) {
    if (const auto error = lua::core::CheckTimeout(timeout)) {
        return error;
    }
    if (const auto error = RequireOpen(device)) {
        return error;
    }
    return device.GetControlEndpoint().ControlOut(SetupOf(egress.command), egress.command.buffer,
                                                  timeout.value_or(kScriptTimeout));
}

std::error_code SendIn(const IngressCommand& ingress, UsbDevice& device,
                       std::optional<double> timeout) {
    if (const auto error = lua::core::CheckTimeout(timeout)) {
        return error;
    }
    if (const auto error = RequireOpen(device)) {
        return error;
    }
    return device.GetControlEndpoint().ControlIn(SetupOf(ingress.command), ingress.command.buffer,
                                                 timeout.value_or(kScriptTimeout));
}

template <typename Id>
void AddId(lua_State* L, int usb, const char* name) {
    bind::UserType<Id>(L, name).Constructor(bind::Overloads<&EmptyId<Id>, &IdOf<Id>>).SetIn(usb);
}

int AddUsb(lua_State* L) {
    lua_newtable(L);
    const int usb = lua_gettop(L);
    bind::UserType<ScriptContext>(L, "UsbContext")
        .Constructor(bind::Fn<&NewContext>)
        .Method("enum_devices", bind::Fn<&EnumDevices>)
        .SetIn(usb);
    // No constructor: a script is handed its devices.
    bind::UserType<UsbDevice>(L, "UsbDevice")
        .Method("get_info", bind::Fn<&UsbDevice::GetInfo>)
        .Method("open", bind::Fn<&UsbDevice::Open>)
        .Method("close", bind::Fn<&UsbDevice::Close>)
        .Method("isOpen", bind::Fn<&UsbDevice::IsOpen>)
        .SetIn(usb);
    bind::UserType<DeviceInfo>(L, "DeviceInfo")
        .Constructor(bind::Fn<&NewInfo>)
        .Getter("manufacturer", bind::Field<&DeviceInfo::manufacturer>)
        .Getter("product", bind::Field<&DeviceInfo::product>)
        .Getter("version", bind::Field<&DeviceInfo::version>)
        .Getter("serial", bind::Field<&DeviceInfo::serial>)
        .Getter("path", bind::Field<&DeviceInfo::path>)
        .SetIn(usb);
    AddId<CommandId>(L, usb, "CommandId");
    AddId<WValue>(L, usb, "wValue");
    AddId<WIndex>(L, usb, "wIndex");
    AddId<WLength>(L, usb, "wLength");
    bind::UserType<ScriptCommand>(L, "VendorCommand")
        .Constructor(bind::Raw<&NewScriptCommand>)
        .Getter("command", bind::Fn<&CommandCode>)
        .Getter("value", bind::Fn<&CommandValue>)
        .Getter("index", bind::Fn<&CommandIndex>)
        .Getter("buffer", bind::Raw<&CommandBuffer>)
        .SetIn(usb);
    bind::UserType<EgressCommand>(L, "EgressCommand")
        .Constructor(bind::Raw<&NewDirected<EgressCommand>>)
        .Method("send_to", bind::Fn<&SendOut>)
        .SetIn(usb);
    bind::UserType<IngressCommand>(L, "IngressCommand")
        .Constructor(bind::Raw<&NewDirected<IngressCommand>>)
        .Method("send_to", bind::Fn<&SendIn>)
        .SetIn(usb);
    // Only a complete table becomes visible.
    lua_setglobal(L, "Usb");
    return 0;
}

}  // namespace

std::error_code AddLuaBindings(lua_State* L) {
    return lua::core::AddTable(L, &AddUsb, "Usb");
}

void PushSharedDevice(lua_State* L, std::shared_ptr<UsbDevice> device) {
    const bool registered =
        lua_rawgetp(L, LUA_REGISTRYINDEX, bind::TypeKey<UsbDevice>()) == LUA_TTABLE;
    lua_pop(L, 1);
    if (!registered) {
        OVEX_LOG_ERROR("The Lua state has no USB device bindings, the device is nil in it.");
        lua_pushnil(L);
        return;
    }
    bind::PushShared(L, std::move(device));
}

std::error_code RequireOpen(UsbDevice& device) {
    if (device.IsOpen()) {
        return {};
    }
    OVEX_LOG_ERROR("USB device '%s' is not open.", device.GetPath().c_str());
    return std::make_error_code(std::errc::not_connected);
}

}  // namespace ovex::usb::device
