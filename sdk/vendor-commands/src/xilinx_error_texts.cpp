#include "error_texts.hpp"

namespace ovex::usb::vendor_cmd::error::texts {
namespace {

// The FPGA firmware's driver status codes: general ones, then one block per driver family.
constexpr CodeText kFpgaDriverTexts[] = {
    {1, "generic failure"},
    {2, "device not found"},
    {3, "device block not found"},
    {4, "invalid version"},
    {5, "device is started"},
    {6, "device is stopped"},
    {7, "an error occurred during an operation with a FIFO such as an underrun or overrun"},
    {8, "an error occurred which requires the device to be reset"},
    {9, "a DMA error occurred"},
    {10, "the device is not configured for polled mode operation"},
    {11, "a FIFO did not have room to put the specified data into"},
    {12, "the buffer is not large enough to hold the expected data"},
    {13, "there was no data available"},
    {14, "a register did not contain the expected value"},
    {15, "an invalid parameter was passed into the function"},
    {16, "the device is not configured for scatter-gather DMA operation"},
    {17, "a loopback test failed"},
    {18, "a callback has not yet been registered"},
    {19, "device is not configured with the requested feature"},
    {20, "device is not configured for interrupt mode operation"},
    {21, "device is busy"},
    {22, "the error counters of a device have maxed out"},
    {23, "part of the device, such as a sub channel, is already started"},
    {24, "part of the device, such as a sub channel, is already stopped"},
    {26, "driver defined error"},
    {27, "generic receive error"},
    {28, "generic transmit error"},
    {29, "a requested service is not available because it has not been enabled"},
    {30, "generic access error"},
    {31, "event timeout occurred"},

    {401, "memory test failed"},

    // Packet FIFO
    {501, "not enough data in FIFO"},
    {502, "not enough room in FIFO"},
    {503, "register value was invalid after reset"},
    {504, "generic packet FIFO error"},
    {505, "packet FIFO is reporting empty and full simultaneously"},
    // DMA
    {511, "DMA transfer failed"},
    {512, "register value was invalid after reset"},
    {513, "scatter gather list contains no buffer descriptors ready to be processed"},
    {514, "scatter gather not stopped"},
    {515, "scatter gather not running"},
    {517, "all the buffer descriptors of the scatter gather list are being used"},
    {518, "the scatter gather buffer descriptor which is to be copied over in the list is locked"},
    {519, "no buffer descriptors have been put into the scatter gather list to be committed"},
    {521, "the packet count threshold specified was larger than the number of buffer descriptors"},
    {522, "the scatter gather list has already been created"},
    {523, "no scatter gather list has been created"},
    {524, "the buffer descriptor which was being started was not committed to the list"},
    {525, "the buffer descriptor to start has already been used by the hardware"},
    {526, "general purpose list access error"},
    {527, "general buffer descriptor error"},
    // IP interface
    {531, "an invalid register width was passed into the function"},
    {532, "the value of a register at reset was not valid"},
    {533, "a write to the device interrupt status register did not read back correctly"},
    {534, "the device interrupt status register did not reset when acked"},
    {535, "the device interrupt enable register was not updated when other registers changed"},
    {536, "a write to the IP interrupt status register did not read back correctly"},
    {537, "the IP interrupt status register did not reset when acked"},
    {538, "the IP interrupt enable register was not updated when other registers changed"},
    {539, "the device interrupt pending register did not indicate the expected value"},
    {540, "the device interrupt ID register did not indicate the expected value"},
    {541, "generic IPIF error"},

    // Ethernet
    {1001, "memory space is not big enough"},
    {1002, "memory allocation failed"},
    {1003, "MII read error"},
    {1004, "an MII operation is in progress"},
    {1005, "driver is out of buffers"},
    {1006, "invalid driver init string"},
    {1007, "excess deferral or late collision on polled send"},
    // IIC
    {1076, "self test failed"},
    {1077, "bus found busy"},
    {1078, "master send attempted with general call address"},
    {1079, "a non parameterizable register value after reset not valid"},
    {1080, "TX FIFO register value after reset not valid"},
    {1081, "RX FIFO register value after reset not valid"},
    {1082, "10-bit address register value after reset not valid"},
    {1083, "read of the control register didn't return value written"},
    {1084, "read of the data transmit register didn't return value written"},
    {1085, "read of the data receive register didn't return value written"},
    {1086, "read of the address register didn't return value written"},
    {1087, "read of the 10-bit address register didn't return value written"},
    {1088, "the device isn't a slave"},
    {1089, "arbitration lost for master"},
    // Flash
    {1126, "flash is erasing or programming"},
    {1127, "flash is ready for commands"},
    {1128, "flash had detected an internal error"},
    {1129, "flash is in suspended erase state"},
    {1130, "flash is in suspended write state"},
    {1131, "flash type not supported by driver"},
    {1132, "flash operation not supported"},
    {1133, "too many erase regions"},
    {1134, "programming or erase operation aborted due to a timeout"},
    {1135, "accessed flash outside its addressable range"},
    {1136, "write alignment error"},
    {1137, "couldn't return immediately from a non-blocking write/erase function"},
    {1138, "failed to query the device"},
    // SPI
    {1151, "master was selected as slave"},
    {1152, "data transfer is complete"},
    {1153, "slave underruns transmit register"},
    {1154, "device overruns receive register"},
    {1155, "no slave has been selected yet"},
    {1156, "more than one slave is being selected"},
    {1157, "operation is valid only as master"},
    {1158, "device is configured as slave-only"},
    {1159, "slave was selected while disabled"},
    {1160, "device has been addressed as slave"},
    {1161, "device received data in slave mode"},
    {1162, "unrecognised command"},
    {1163, "controller completed polling the device for status"},
    // Interrupt controller and timer
    {1201, "self test failed"},
    {1202, "interrupt already in use"},
    {1226, "self test failed"},
    // System configuration controller
    {1351, "no MPU lock has been granted"},
    // NAND flash
    {1441, "NAND flash is erasing or programming"},
    {1442, "NAND flash is ready for commands"},
    {1443, "NAND flash had detected an internal error"},
    {1444, "NAND flash type not supported by driver"},
    {1445, "NAND flash operation not supported"},
    {1446, "NAND programming or erase operation aborted due to a timeout"},
    {1447, "accessed NAND flash outside its addressable range"},
    {1448, "NAND write alignment error"},
    {1449, "failed to read parameter page of the device"},
    {1450, "NAND flash page buffer error"},
    {1451, "NAND flash is write protected"},
};
static_assert(IsSortedByCode(kFpgaDriverTexts));

}  // namespace

const char* FpgaDriverErrorText(int code) noexcept {
    return FindText(kFpgaDriverTexts, code);
}

}  // namespace ovex::usb::vendor_cmd::error::texts
