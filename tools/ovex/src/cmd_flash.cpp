// `ovex flash list|read`: a board's flash memories, read only.
#include "commands.hpp"
#include "memories.hpp"

namespace ovex::cli {

const CommandText kFlashText = {
    "flash", "list LOCATOR | read LOCATOR ID ADDRESS LENGTH [-o FILE] [--power-up]",
    "list a board's flash memories or read from one",
    "list prints each flash's index, id, part number, size and page size, then its regions:\n"
    "first and last address and sectors.\n"
    "read reads LENGTH bytes from ADDRESS of the flash ID (its index or its id, in any case)\n"
    "and prints them as a hex dump, or with -o writes them to FILE as they are. ADDRESS and\n"
    "LENGTH are decimal or, after 0x, hex.\n"
    "\n"
    "A flash exists for the library only once the unit behind it is up: flash_fpga_be, the\n"
    "backend FPGA's, when the backend is (on every board); on a NoBE flash_fpga_fe, the\n"
    "frontend's, when the frontend is. A board whose units are down lists none: power it up\n"
    "first (`ovex power up`, or --power-up here; either leaves it up). Nothing here writes or\n"
    "erases.\n"
    "\n"
    "Options:\n"
    "  -o FILE      write the bytes to FILE instead of the hex dump\n"
    "  --power-up   power the whole board up first; a board already up is fine\n"
    "\n"
    "Examples:\n"
    "  ovex flash list 0 --power-up\n"
    "  ovex flash read 0 flash_fpga_be 0 256\n"
    "  ovex flash read OVX00001 0 0x10000 0x10000 -o sector1.bin\n"};

int RunFlash(Args& args) {
    return RunMemoryCommand(args, MemoryKind::kFlash);
}

}  // namespace ovex::cli
