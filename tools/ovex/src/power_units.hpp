// A board's power units as the commands show and switch them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ovexsdk.h"

namespace ovex::cli {

struct PowerUnit {
    std::uint8_t index;
    std::string name;
    bool powered;
};

// The units of an open board, first to last, with their state now.
std::vector<PowerUnit> PowerUnitsOf(ovexsdk_dev_ctx* ctx);

std::vector<std::string> NamesOf(const std::vector<PowerUnit>& units);

// One line a unit, "<indent>0  backend   up", the names aligned.
void PrintPowerUnits(const std::vector<PowerUnit>& units, const char* indent);

// What a command's --power-up does: the whole board up; a board already up is no failure.
void PowerUpWholeBoard(ovexsdk_dev_ctx* ctx);

}  // namespace ovex::cli
