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
