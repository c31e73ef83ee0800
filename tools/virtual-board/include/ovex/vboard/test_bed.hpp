#pragma once

// The process's emulated /sys and /dev/bus/usb. There is one at a time in a process: it must be
// made before the first libusb context and destroyed after the last one has gone.

#include <string>
#include <vector>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace ovex::vboard {

class TestBed {
public:
    TestBed();
    ~TestBed();
    TestBed(const TestBed&) = delete;
    TestBed& operator=(const TestBed&) = delete;

    UMockdevTestbed* Get() const { return m_testbed; }
    // The root of the emulated tree, which a child process finds through UMOCKDEV_DIR.
    std::string RootDir() const;

    // Keeps a reference of a GObject until after the test bed is gone: umockdev's worker must
    // never be the one that finalises an ioctl handler.
    void Adopt(void* object);

    // A device number not used before on bus 1.
    int NextDeviceNumber() { return m_next_devnum++; }

    // True when the preload library redirects this process's device access.
    static bool PreloadActive();

private:
    UMockdevTestbed* m_testbed;
    std::vector<void*> m_adopted;
    int m_next_devnum = 2;
};

}  // namespace ovex::vboard
