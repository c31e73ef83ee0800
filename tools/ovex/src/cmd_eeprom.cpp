// `ovex eeprom list|read`: a board's EEPROMs, read only.
#include "commands.hpp"
#include "memories.hpp"

namespace ovex::cli {

const CommandText kEepromText = {
    "eeprom", "list LOCATOR | read LOCATOR ID ADDRESS LENGTH [-o FILE]",
    "list a board's EEPROMs or read from one",
    "list prints each EEPROM's index, id and part number, then its regions: first and last\n"
    "address, ro (read-only) or rw, and sectors.\n"
    "read reads LENGTH bytes from ADDRESS of the EEPROM ID (its index or its id, in any case)\n"
    "and prints them as a hex dump, or with -o writes them to FILE as they are. ADDRESS and\n"
    "LENGTH are decimal or, after 0x, hex; a read may span regions, but not leave them.\n"
    "\n"
    "The EEPROMs sit on the board's own bus and need no power unit up: every board has\n"
    "i2c0-eeprom (64 KiB) and i2c0-eeprom-security, whose read-only half starts with the\n"
    "chip's 128-bit serial number. Nothing here writes or erases.\n"
    "\n"
    "Options:\n"
    "  -o FILE      write the bytes to FILE instead of the hex dump\n"
    "  --power-up   power the whole board up first (not needed for its EEPROMs)\n"
    "\n"
    "Examples:\n"
    "  ovex eeprom list 0\n"
    "  ovex eeprom read 0 i2c0-eeprom-security 0x800 16\n"
    "  ovex eeprom read OVX00001 0 0 65536 -o eeprom.bin\n"};

int RunEeprom(Args& args) {
    return RunMemoryCommand(args, MemoryKind::kEeprom);
}

}  // namespace ovex::cli
