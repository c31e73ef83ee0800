// `ovex monitor`: a board's monitors live, as the board sends them, until Ctrl-C or N readings.
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <vector>

#include "commands.hpp"
#include "interrupt.hpp"
#include "monitor_view.hpp"
#include "power_units.hpp"
#include "session.hpp"

namespace ovex::cli {

const CommandText kMonitorText = {
    "monitor", "LOCATOR [--count N] [--period MS] [--lines] [--power-up]",
    "show a board's monitors live",
    "Shows every reading of the board's monitors as the board sends it, until Ctrl-C (exit 0)\n"
    "or --count readings. On a terminal a table is redrawn in place; otherwise, or with\n"
    "--lines, each reading is one line for scripts:\n"
    "  NAME VALUE TIMESTAMP [warning] [error]\n"
    "with the board's own time stamp; a monitor that becomes unavailable shows \"-\" as its\n"
    "value. Readings come from several threads at once, so lines of one round may come in any\n"
    "order. The board sends all its monitors every round, changed or not.\n"
    "\n"
    "The command powers nothing by itself. A board sends readings only while its monitor\n"
    "stream runs: a Timepix3 or chip board starts it when its backend is up, a NoBE when it is\n"
    "opened; monitors on rails that are off are unavailable and send nothing. --power-up powers\n"
    "the whole board up first (and, as `ovex power up`, leaves it up).\n"
    "\n"
    "Options:\n"
    "  --count N     end after N readings\n"
    "  --period MS   show each monitor at most once every MS milliseconds (default 0: every\n"
    "                reading)\n"
    "  --lines       one line per reading on a terminal too\n"
    "  --power-up    power the whole board up first; a board already up is fine\n"
    "\n"
    "Examples:\n"
    "  ovex monitor 0 --power-up\n"
    "  ovex monitor OVX00001 --count 20 --lines | grep TSENS_TEMP\n"};

namespace {

// The callbacks' parameter: which view and which monitor.
struct Subscription {
    MonitorView* view;
    std::size_t monitor;
};

void OnValue(const ovexsdk_mon_on_value_changed_args* args, void* param) {
    const auto* subscription = static_cast<const Subscription*>(param);
    subscription->view->OnValue(subscription->monitor, args->value, args->flags[0] != 0,
                                args->flags[1] != 0, args->timestamp);
}

void OnAvailability(const ovexsdk_mon_on_avail_changed_args* args, void* param) {
    const auto* subscription = static_cast<const Subscription*>(param);
    subscription->view->OnAvailability(subscription->monitor, (args->available & 1) != 0,
                                       args->timestamp);
}

}  // namespace

int RunMonitor(Args& args) {
    MonitorView::Options options;
    options.limit = args.Count("--count", 1, std::numeric_limits<std::uint64_t>::max()).value_or(0);
    options.min_interval =
        std::chrono::milliseconds(args.Count("--period", 0, 86'400'000).value_or(0));
    const bool lines = args.Flag("--lines");
    const bool power_up = args.Flag("--power-up");
    const std::string locator = LocatorOf(args.Positional("LOCATOR"));
    args.Finish();
    options.style = lines || ::isatty(STDOUT_FILENO) == 0 ? MonitorView::Style::kLines
                                                          : MonitorView::Style::kTable;

    // The view and the callbacks' parameters outlive the session: closing the board waits for
    // the notification tasks that may still use them.
    std::optional<MonitorView> view;
    std::vector<Subscription> subscriptions;
    Session session(locator, args.Verbosity());
    session.Open();
    ovexsdk_dev_ctx* ctx = session.Ctx();
    if (power_up) {
        PowerUpWholeBoard(ctx);
    } else {
        for (const PowerUnit& unit : PowerUnitsOf(ctx)) {
            if (!unit.powered) {
                std::fprintf(stderr,
                             "ovex monitor: %s is down; what it powers sends nothing "
                             "(--power-up powers the board up)\n",
                             unit.name.c_str());
            }
        }
    }

    const std::vector<MonitorDescription> monitors = MonitorsOf(ctx);
    view.emplace(monitors, options, stdout);
    // Reserved: the library keeps pointers to the elements.
    subscriptions.reserve(monitors.size());
    const InterruptWatch interrupt;
    for (std::uint32_t i = 0; i < monitors.size(); ++i) {
        subscriptions.push_back({&*view, i});
        Check(ovexsdk_mon_set_value_changed_cb(ctx, i, OnValue, &subscriptions.back()),
              "ovexsdk_mon_set_value_changed_cb");
        Check(ovexsdk_mon_set_avail_changed_cb(ctx, i, OnAvailability, &subscriptions.back()),
              "ovexsdk_mon_set_avail_changed_cb");
    }
    // A signal can't wake a condition variable, so the wait looks at Ctrl-C ten times a second;
    // a terminal's table is redrawn as often, when it changed.
    while (!interrupt.Requested() && !view->WaitForLimit(std::chrono::milliseconds(100))) {
        view->Draw();
    }
    view->Draw();
    return kExitOk;
}

}  // namespace ovex::cli
