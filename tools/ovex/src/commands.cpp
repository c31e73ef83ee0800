#include "commands.hpp"

namespace ovex::cli {

std::span<const Command> Commands() {
    static const Command commands[] = {
        {kListText, RunList},
        {kAcquireText, RunAcquire},
    };
    return commands;
}

}  // namespace ovex::cli
