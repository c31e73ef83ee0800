// ovex-usb-list: lists the boards on the USB bus, as the SDK's transport sees them.

#include <cstdio>
#include <cstring>
#include <exception>

#include "ovex/usb/usb_context.hpp"
#include "ovex/usb/usb_device.hpp"

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
        std::printf(
            "Usage: ovex-usb-list\nLists the boards (USB 1209:ad0e) with their identity.\n");
        return 0;
    }
    try {
        ovex::usb::device::UsbContext context;
        auto devices = context.EnumerateDevices(0x1209, 0xAD0E);
        std::printf("%zu board%s found\n", devices.size(), devices.size() == 1 ? "" : "s");
        int failures = 0;
        for (auto& device : devices) {
            ovex::usb::device::DeviceInfo info;
            if (const auto error = device.GetInfo(info)) {
                std::printf("  %s: %s\n", device.GetPath().c_str(), error.message().c_str());
                ++failures;
                continue;
            }
            std::printf("  %-8s %s, %s, serial %s, release %s\n", info.path.c_str(),
                        info.manufacturer.c_str(), info.product.c_str(), info.serial.c_str(),
                        info.version.c_str());
        }
        return failures == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ovex-usb-list: %s\n", error.what());
        return 1;
    }
}
