// `ovex power up|down`: switches a board's power units, all or one.
#include <cstdio>
#include <string>

#include "commands.hpp"
#include "name_lookup.hpp"
#include "power_units.hpp"
#include "session.hpp"

namespace ovex::cli {

const CommandText kPowerText = {
    "power", "up|down LOCATOR [UNIT] [--strict]", "power a board's units up or down",
    "Without UNIT switches every power unit of the board: first to last going up, last to first\n"
    "going down. UNIT picks one, by its index or its name in any case (`ovex info` lists them;\n"
    "the backend is unit 0 and comes first: a frontend needs it up). Prints the units that\n"
    "changed, then every unit's state.\n"
    "\n"
    "A board keeps its power when ovex ends: closing a board doesn't power it down, so the next\n"
    "command or program finds it as this one left it, until it is powered down, reset or\n"
    "unplugged.\n"
    "\n"
    "A board or unit already in the state asked for is no failure: the command says so and\n"
    "exits 0, so that a script can power up without asking first.\n"
    "\n"
    "Options:\n"
    "  --strict   exit 4 instead when the board or unit is already in that state\n"
    "\n"
    "Examples:\n"
    "  ovex power up 0                    every unit of the first board\n"
    "  ovex power up OVX00001 frontend    the frontend alone\n"
    "  ovex power down 0                  frontend, then backend\n"};

namespace {

// The names of the units whose state differs between the two readings, "backend, frontend".
std::string ChangedUnits(const std::vector<PowerUnit>& before,
                         const std::vector<PowerUnit>& after) {
    std::string changed;
    for (std::size_t i = 0; i < before.size() && i < after.size(); ++i) {
        if (before[i].powered != after[i].powered) {
            changed += (changed.empty() ? "" : ", ") + after[i].name;
        }
    }
    return changed;
}

}  // namespace

int RunPower(Args& args) {
    const bool strict = args.Flag("--strict");
    const std::string direction = args.Positional("up or down");
    if (direction != "up" && direction != "down") {
        throw UsageError("the first word is up or down, not '" + direction + "'");
    }
    const bool up = direction == "up";
    const std::string locator = LocatorOf(args.Positional("LOCATOR"));
    const auto unit_text = args.OptionalPositional();
    args.Finish();

    Session session(locator, args.Verbosity());
    session.Open();
    ovexsdk_dev_ctx* ctx = session.Ctx();
    const std::vector<PowerUnit> before = PowerUnitsOf(ctx);
    std::string target = "the board";
    ovexsdk_err_code result = OVEXSDK_OK;
    std::string call;
    if (unit_text) {
        const PowerUnit& unit =
            before[IndexByNameOrNumber(*unit_text, NamesOf(before), "power unit")];
        target = unit.name;
        call = up ? "ovexsdk_dev_power_up_unit" : "ovexsdk_dev_power_down_unit";
        result = up ? ovexsdk_dev_power_up_unit(ctx, unit.index)
                    : ovexsdk_dev_power_down_unit(ctx, unit.index);
    } else {
        call = up ? "ovexsdk_dev_power_up" : "ovexsdk_dev_power_down";
        result = up ? ovexsdk_dev_power_up(ctx) : ovexsdk_dev_power_down(ctx);
    }

    // The library's word for "already so" differs with the direction.
    const bool already = result == (up ? OVEXSDK_ERR_BUSY : OVEXSDK_ERR_UNAVAILABLE);
    if (already && strict) {
        throw CommandError(kExitBusy, target + " is already " + direction);
    }
    const std::vector<PowerUnit> after = PowerUnitsOf(ctx);
    const std::string changed = ChangedUnits(before, after);
    if (already) {
        std::printf("%s is already %s: nothing to do\n", target.c_str(), direction.c_str());
    } else if (!changed.empty()) {
        std::printf("powered %s: %s\n", direction.c_str(), changed.c_str());
    }
    PrintPowerUnits(after, "");
    if (!already) {
        Check(result, call);
    }
    return kExitOk;
}

}  // namespace ovex::cli
