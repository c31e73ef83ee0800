#include "ovex/vboard/test_bed.hpp"

#include <umockdev.h>

#include <fstream>
#include <stdexcept>

namespace ovex::vboard {

TestBed::TestBed() : m_testbed(umockdev_testbed_new()) {
    if (m_testbed == nullptr) {
        throw std::runtime_error("Failed to create the USB test bed.");
    }
}

TestBed::~TestBed() {
    g_object_unref(m_testbed);
    for (void* object : m_adopted) {
        g_object_unref(object);
    }
}

void TestBed::Adopt(void* object) {
    m_adopted.push_back(object);
}

std::string TestBed::RootDir() const {
    gchar* root = umockdev_testbed_get_root_dir(m_testbed);
    std::string text = root;
    g_free(root);
    return text;
}

// Asked of the mapped libraries each time: the library's own answer is cached on first use.
bool TestBed::PreloadActive() {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line)) {
        if (line.find("libumockdev-preload") != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace ovex::vboard

#if defined(__SANITIZE_THREAD__)
// What ThreadSanitizer cannot see in the test bed's libraries, for every program that links it.
// libudev seeds its hash keys once, unguarded, from whichever thread (libusb's hotplug monitor
// or the uevent sender) comes first. umockdev hands its objects
// between the caller's thread and its worker through GLib's main context. The SDK's own threads
// never run inside these libraries, so their races still show.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "called_from_lib:libudev.so.1\n"
           "race:libudev.so.1\n"
           "race:libumockdev.so.0\n";
}
#endif
