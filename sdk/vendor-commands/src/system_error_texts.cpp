#include "error_texts.hpp"

#include <iterator>

namespace ovex::usb::vendor_cmd::error::texts {
namespace {

// The USB controller's firmware return codes: its RTOS errors (1 to 32), its library errors (64
// to 86), its storage and SDIO errors (96 to 127) and two special values.
constexpr CodeText kSystemTexts[] = {
    {1, "the OS object being accessed has been deleted"},
    {2, "bad memory pool passed to a function"},
    {3, "bad (NULL or unaligned) pointer passed to a function"},
    {4, "non-zero wait requested from interrupt context"},
    {5, "invalid size value passed into a function"},
    {6, "invalid event group passed into a function"},
    {7, "failed to set/get the event flags specified"},
    {8, "invalid task option value specified for the function"},
    {9, "invalid message queue passed to a function"},
    {10, "the message queue being read is empty"},
    {11, "the message queue being written to is full"},
    {12, "invalid semaphore pointer passed to a function"},
    {13, "a semaphore get operation failed"},
    {14, "invalid thread pointer passed to a function"},
    {15, "invalid thread priority value passed to a function"},
    {16, "failed to allocate memory"},
    {17, "failed to delete an object because it is not idle"},
    {18, "failed to resume a thread"},
    {19, "OS function failed because the current caller is not allowed"},
    {20, "failed to suspend a thread"},
    {21, "invalid timer pointer passed to a function"},
    {22, "invalid (0) tick value passed to a timer function"},
    {23, "failed to activate a timer"},
    {24, "invalid thread pre-emption threshold value specified"},
    {25, "thread suspension was cancelled"},
    {26, "wait operation was aborted"},
    {27, "failed to abort wait operation on a thread"},
    {28, "invalid mutex pointer passed to a function"},
    {29, "failed to get a mutex"},
    {30, "failed to put a mutex because it is not currently owned"},
    {31, "error in priority inheritance"},
    {32, "operation failed because relevant object is not idle or done"},

    {64, "one or more parameters to a function are invalid"},
    {65, "a null pointer has been passed in unexpectedly"},
    {66, "the object/module being referred to has not been started"},
    {67, "an object/module that is already active is being started"},
    {68, "object/module referred to has not been configured"},
    {69, "timeout on relevant operation"},
    {70, "operation requested is not supported in current mode"},
    {71, "invalid function call sequence"},
    {72, "function call failed as it was aborted by another thread/isr"},
    {73, "DMA engine failed to complete requested operation"},
    {74, "failure due to a non-specific system error"},
    {75, "bad index value was passed in as parameter"},
    {76, "bad enumeration method specified"},
    {77, "invalid configuration specified"},
    {78, "internal DMA channel creation failed"},
    {79, "internal DMA channel destroy failed"},
    {80, "invalid descriptor type specified"},
    {81, "USB transfer was cancelled"},
    {82, "a USB feature like remote wakeup is not enabled"},
    {83, "a USB request / data transfer is stalled"},
    {84, "the block accessed has a fatal error and needs to be re-initialized"},
    {85, "loss of bus arbitration, invalid bus behaviour or bus busy"},
    {86, "failed to enter standby mode because one or more wakeup events are active"},

    {96, "storage device's voltage range does not meet FX3S requirements"},
    {97, "incorrect response received from storage device"},
    {98, "storage device features are not supported by the host"},
    {99, "storage device failed to move to expected state"},
    {100, "storage device failed to support required commands"},
    {101, "response CRC error detected"},
    {102, "out of range address provided for read/write/erase access"},
    {103, "non-existent storage partition selected for transfer"},
    {104, "access to port with no connected storage device"},
    {105, "request to partition a device which is already partitioned"},
    {106, "request to remove partitions on an unpartitioned device"},
    {107, "incorrect partition selected"},
    {108, "read/write transfer was aborted (user cancellation or timeout)"},
    {109, "write request addressed to a write protected storage device"},
    {110, "storage driver initialization failed"},
    {111, "access to password locked SD card"},
    {112, "failure while locking/unlocking the SD card"},
    {113, "failure during SD force erase operation"},
    {114, "block size specified for SDIO device is not supported"},
    {115, "non-existent SDIO function being accessed"},
    {116, "non-existent tuple of SDIO card being accessed"},
    {117, "IO operation to SDIO card aborted"},
    {118, "IO operation to SDIO card suspended"},
    {119, "invalid command sent to the SDIO card"},
    {120, "generic error reported by SDIO card"},
    {121, "SDIO command argument is out of range"},
    {122, "access to uninitialized SDIO function"},
    {123, "access to SDIO card which is not active"},
    {124, "the storage device is busy handling another request"},
    {125, "no metadata present on card"},
    {126, "card read/write threshold error crossed"},
    {127, "card not responding to read/write transactions"},

    {254, "re-enumeration not required"},
    {255, "the requested feature/operation is not enabled in the current configuration"},
};
static_assert(std::size(kSystemTexts) == 89);
static_assert(IsSortedByCode(kSystemTexts));

}  // namespace

const char* SystemErrorText(int code) noexcept {
    return FindText(kSystemTexts, code);
}

}  // namespace ovex::usb::vendor_cmd::error::texts
