// `ovex list`: the attached boards, one a line, with the locator that opens each.
#include <cinttypes>
#include <cstdio>
#include <vector>

#include "commands.hpp"

namespace ovex::cli {

const CommandText kListText = {
    "list", "", "list the attached boards",
    "Prints one line per board: its index, serial number, product, locator and USB path.\n"
    "Prints nothing and succeeds when no board is attached.\n"};

int RunList(Args& args) {
    args.Finish();
    // Capacity in, count out: a full answer may have been cut, so ask again with more room.
    std::vector<ovexsdk_enum_info> infos(16);
    std::uint64_t count = 0;
    while (true) {
        count = infos.size();
        Check(ovexsdk_enum_get_info(infos.data(), &count), "ovexsdk_enum_get_info");
        if (count < infos.size()) {
            break;
        }
        infos.resize(infos.size() * 2);
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        const ovexsdk_enum_info& info = infos[i];
        std::printf("%" PRIu64 "  %-10s %-24s %-16s %s\n", i, info.serial_number, info.product,
                    info.connection_string, info.instance_path);
    }
    return kExitOk;
}

}  // namespace ovex::cli
