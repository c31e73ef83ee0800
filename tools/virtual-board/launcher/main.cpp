// ovex-vboard: keeps virtual boards in this process and runs an unmodified host program against
// them. The program sees the boards through libusb as if they were plugged in.

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "ovex/vboard/virtual_board.hpp"

namespace {

constexpr const char* kPreload = "libumockdev-preload.so.0";

void PrintUsage(std::FILE* out) {
    std::fprintf(
        out,
        "Usage: ovex-vboard run [options] -- PROGRAM [ARGS...]\n"
        "Runs PROGRAM with virtual boards on an emulated USB bus.\n\n"
        "Options:\n"
        "  --boards N     number of boards (default 1)\n"
        "  --kind KIND    board kind: tpx3 (default), tpx2cb, tpx4cb or nobe\n"
        "  --counting-stream\n"
        "                 send the counting test stream on the data endpoint (default: the\n"
        "                 endpoint sends only what the chip reads back)\n"
        "  --rate R       rate of the data endpoint's stream: bytes per second of the counting\n"
        "                 stream, packets per second of a replay (default 0: as fast as read)\n"
        "  --replay FILE  in the Timepix3 chip's data-driven mode, play FILE (a recorded board\n"
        "                 stream of 6-byte packets) while the shutter is open instead of the\n"
        "                 beam, looping with its times moved on\n"
        "  --serial TEXT  serial number of the first board (default OVX00001); later boards\n"
        "                 count up the number it ends in\n"
        "  --boot-loader ID\n"
        "                 start the boards in boot loader mode with the board id ID (e.g.\n"
        "                 OVBD), waiting for the host to load an application image\n"
        "  --pcb X.YY     PCB version of the boards (default: the kind's, 3.03 or 3.00)\n"
        "  --monitor-period MS\n"
        "                 push a round of monitor readings on the interrupt endpoint every MS\n"
        "                 milliseconds (default 0: the monitor stream stays silent)\n"
        "  --trigger-rate HZ\n"
        "                 drive the boards' trigger input with a pulse train: a rising edge\n"
        "                 HZ times a second, high for half of each period (default 0: low)\n"
        "  --hit-rate HZ  hits per second in a beam spot, in the Timepix3 and Timepix2\n"
        "                 frames and the data-driven stream (default 0)\n"
        "  --spot X,Y     the beam spot's centre: column X and row Y of the pixel (y * 256 + x\n"
        "                 in the host's frames), each from 0 to 255 (default 127.5,127.5: the\n"
        "                 sensor's centre)\n"
        "  --spot-sigma PX\n"
        "                 the beam spot's Gaussian width in pixels (default 8)\n"
        "  --background-rate HZ\n"
        "                 hits per second on every pixel besides the spot (default 0)\n"
        "  --flood        every unmasked pixel is hit once per frame (full frames)\n"
        "  --seed N       seed of the hits (default 1); later boards take N+1, N+2, ...\n"
        "  --help         this text\n\n"
        "Examples:\n"
        "  ovex-vboard run --boards 2 -- build/tools/usb-list/ovex-usb-list\n"
        "  ovex-vboard run --boot-loader TPX3EFE --pcb 3.04 -- PROGRAM\n"
        "  ovex-vboard run --trigger-rate 10 --hit-rate 1e6 --background-rate 5 -- PROGRAM\n"
        "  ovex-vboard run --kind tpx2cb --hit-rate 2e5 --spot 60,190 -- PROGRAM\n"
        "  ovex-vboard run --replay run.bin --rate 6e7 -- PROGRAM\n");
}

struct Options {
    int boards = 1;
    ovex::vboard::BoardKind kind = ovex::vboard::BoardKind::kTimepix3;
    double rate = 0.0;
    bool counting_stream = false;
    std::optional<std::string> replay;
    std::string serial = ovex::vboard::BoardIdentity{}.serial;
    std::optional<std::string> boot_loader;
    std::uint16_t bcd_device = 0;  // 0: the kind's
    long monitor_period_ms = 0;    // 0: no monitor stream
    double trigger_rate = 0.0;     // 0: the trigger input stays low
    ovex::vboard::HitModel hits;
    std::vector<char*> program;
};

// A number that is all of `text`, finite and not negative.
std::optional<double> RateNamed(const char* text) {
    char* end = nullptr;
    const double value = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(value) || value < 0.0) {
        return std::nullopt;
    }
    return value;
}

// A spot centre "X,Y", both on the sensor (0 to 255), into `hits`.
bool SpotNamed(const std::string& text, ovex::vboard::HitModel& hits) {
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos) {
        return false;
    }
    const auto x = RateNamed(text.substr(0, comma).c_str());
    const auto y = RateNamed(text.substr(comma + 1).c_str());
    constexpr double kLast = 255.0;
    if (!x || !y || *x > kLast || *y > kLast) {
        return false;
    }
    hits.spot_x = *x;
    hits.spot_y = *y;
    return true;
}

std::optional<ovex::vboard::BoardKind> KindNamed(const std::string& name) {
    using ovex::vboard::BoardKind;
    if (name == "tpx3") {
        return BoardKind::kTimepix3;
    }
    if (name == "tpx2cb") {
        return BoardKind::kTimepix2Cb;
    }
    if (name == "tpx4cb") {
        return BoardKind::kTimepix4Cb;
    }
    if (name == "nobe") {
        return BoardKind::kNobe;
    }
    return std::nullopt;
}

// A PCB version "X.YY" (X from 0 to 99) as the device release in BCD: "3.04" is 0x0304.
std::optional<std::uint16_t> PcbVersionNamed(const std::string& text) {
    const std::size_t dot = text.find('.');
    const bool digits = dot >= 1 && dot <= 2 && text.size() == dot + 3 &&
                        text.find_first_not_of("0123456789") == dot &&
                        text.find_last_not_of("0123456789") == dot;
    if (!digits) {
        return std::nullopt;
    }
    std::uint16_t bcd = 0;
    for (const char c : text) {
        if (c != '.') {
            bcd = static_cast<std::uint16_t>(bcd << 4 | (c - '0'));
        }
    }
    return bcd;
}

// The serial number of board `offset` after the first: the number at the end of the first one's,
// counted up in the same width ("OVX00009" -> "OVX00010"); a serial without one gets it added.
std::string NthSerial(const std::string& first, int offset) {
    const std::size_t digits = first.size() - (first.find_last_not_of("0123456789") + 1);
    const std::string stem = first.substr(0, first.size() - digits);
    const long number = digits == 0 ? 1 : std::stol(first.substr(stem.size()));
    std::string count = std::to_string(number + offset);
    if (count.size() < digits) {
        count.insert(0, digits - count.size(), '0');
    }
    return stem + count;
}

bool Parse(int argc, char** argv, Options& options) {
    if (argc < 2 || std::strcmp(argv[1], "run") != 0) {
        return false;
    }
    for (int i = 2; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool has_value = i + 1 < argc;
        if (arg == "--") {
            options.program.assign(argv + i + 1, argv + argc);
            return !options.program.empty();
        } else if (arg == "--boards" && has_value) {
            options.boards = std::atoi(argv[++i]);
            if (options.boards < 0 || options.boards > 100) {
                return false;
            }
        } else if (arg == "--kind" && has_value) {
            const auto kind = KindNamed(argv[++i]);
            if (!kind) {
                return false;
            }
            options.kind = *kind;
        } else if (arg == "--counting-stream") {
            options.counting_stream = true;
        } else if (arg == "--rate" && has_value) {
            const auto value = RateNamed(argv[++i]);
            if (!value) {
                return false;
            }
            options.rate = *value;
        } else if (arg == "--replay" && has_value) {
            options.replay = argv[++i];
        } else if (arg == "--serial" && has_value) {
            options.serial = argv[++i];
        } else if (arg == "--boot-loader" && has_value) {
            options.boot_loader = argv[++i];
        } else if (arg == "--pcb" && has_value) {
            const auto bcd = PcbVersionNamed(argv[++i]);
            if (!bcd) {
                return false;
            }
            options.bcd_device = *bcd;
        } else if ((arg == "--trigger-rate" || arg == "--hit-rate" || arg == "--spot-sigma" ||
                    arg == "--background-rate") &&
                   has_value) {
            const auto value = RateNamed(argv[++i]);
            if (!value || (arg == "--spot-sigma" && *value == 0.0)) {
                return false;
            }
            if (arg == "--trigger-rate") {
                options.trigger_rate = *value;
            } else if (arg == "--hit-rate") {
                options.hits.spot_rate = *value;
            } else if (arg == "--spot-sigma") {
                options.hits.spot_sigma = *value;
            } else {
                options.hits.background_rate = *value;
            }
        } else if (arg == "--spot" && has_value) {
            if (!SpotNamed(argv[++i], options.hits)) {
                return false;
            }
        } else if (arg == "--seed" && has_value) {
            char* end = nullptr;
            const char* text = argv[++i];
            options.hits.seed = std::strtoull(text, &end, 10);
            if (end == text || *end != '\0' || text[0] == '-') {
                return false;
            }
        } else if (arg == "--flood") {
            options.hits.flood = true;
        } else if (arg == "--monitor-period" && has_value) {
            options.monitor_period_ms = std::atol(argv[++i]);
            if (options.monitor_period_ms < 0) {
                return false;
            }
        } else {
            return false;
        }
    }
    return false;
}

// Pushes a round of monitor readings on every board at each period until stopped, as boards at
// work do by themselves.
std::jthread MonitorPusher(std::vector<std::unique_ptr<ovex::vboard::VirtualBoard>>& boards,
                           long period_ms) {
    if (period_ms <= 0) {
        return {};
    }
    return std::jthread([&boards, period_ms](std::stop_token token) {
        std::mutex mutex;
        std::condition_variable_any stopped;
        std::unique_lock lock(mutex);
        for (;;) {
            stopped.wait_for(lock, token, std::chrono::milliseconds(period_ms),
                             [] { return false; });
            if (token.stop_requested()) {
                return;
            }
            // A round still waiting for the host isn't piled upon: the host reads fresh values.
            for (const auto& board : boards) {
                if (board->Frames().Queued() == 0) {
                    board->PushMonitorRound();
                }
            }
        }
    });
}

// Drives every board's trigger input with a pulse train until stopped: a rising edge `rate` times
// a second, high for half of each period.
std::jthread TriggerPulser(std::vector<std::unique_ptr<ovex::vboard::VirtualBoard>>& boards,
                           double rate) {
    if (rate <= 0.0) {
        return {};
    }
    return std::jthread([&boards, rate](std::stop_token token) {
        const auto half = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>(0.5 / rate));
        std::mutex mutex;
        std::condition_variable_any stopped;
        std::unique_lock lock(mutex);
        auto next = std::chrono::steady_clock::now();
        for (bool high = true;; high = !high) {
            stopped.wait_until(lock, token, next, [] { return false; });
            if (token.stop_requested()) {
                return;
            }
            for (const auto& board : boards) {
                board->Engine().SetTriggerInput(high);
            }
            next += half;
        }
    });
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 2 && std::strcmp(argv[1], "--help") == 0) {
        PrintUsage(stdout);
        return 0;
    }
    Options options;
    if (!Parse(argc, argv, options)) {
        PrintUsage(stderr);
        return 2;
    }
    std::optional<ovex::vboard::ReplayStream> replay;
    if (options.replay) {
        auto loaded = ovex::vboard::LoadReplayFile(*options.replay, options.rate);
        if (const auto* error = std::get_if<std::string>(&loaded)) {
            std::fprintf(stderr, "ovex-vboard: %s\n", error->c_str());
            return 2;
        }
        replay = std::get<ovex::vboard::ReplayStream>(std::move(loaded));
    }
    try {
        ovex::vboard::TestBed bed;
        std::vector<std::unique_ptr<ovex::vboard::VirtualBoard>> boards;
        for (int i = 0; i < options.boards; ++i) {
            ovex::vboard::VirtualBoard::Settings settings;
            settings.kind = options.kind;
            settings.identity.serial = i == 0 ? options.serial : NthSerial(options.serial, i);
            settings.stream.bytes_per_second = options.replay ? 0.0 : options.rate;
            if (!options.counting_stream) {
                settings.stream.total_bytes = 0;
            }
            settings.identity.bcd_device = options.bcd_device;
            if (options.boot_loader) {
                settings.boot_loader =
                    ovex::vboard::BootLoaderMode{.board_id = *options.boot_loader};
            }
            boards.push_back(std::make_unique<ovex::vboard::VirtualBoard>(bed, i + 1, settings));
            ovex::vboard::HitModel hits = options.hits;
            hits.seed += static_cast<std::uint64_t>(i);
            boards.back()->Engine().SetHitModel(hits);
            // Nobody asks a launched board what it sent: a long run's truth would fill memory.
            boards.back()->Engine().KeepStreamTruth(false);
            boards.back()->Engine().SetReplay(replay);
        }
        const pid_t child = ::fork();
        if (child < 0) {
            std::perror("ovex-vboard: fork");
            return 1;
        }
        if (child == 0) {
            const char* existing = std::getenv("LD_PRELOAD");
            const std::string preload =
                existing && *existing ? std::string(kPreload) + ":" + existing : kPreload;
            ::setenv("LD_PRELOAD", preload.c_str(), 1);
            options.program.push_back(nullptr);
            ::execvp(options.program[0], options.program.data());
            std::fprintf(stderr, "ovex-vboard: cannot run %s: %s\n", options.program[0],
                         std::strerror(errno));
            ::_exit(127);
        }
        const std::jthread pusher = MonitorPusher(boards, options.monitor_period_ms);
        const std::jthread pulser = TriggerPulser(boards, options.trigger_rate);
        int status = 0;
        while (::waitpid(child, &status, 0) < 0) {
            if (errno != EINTR) {
                std::perror("ovex-vboard: waitpid");
                return 1;
            }
        }
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ovex-vboard: %s\n", error.what());
        return 1;
    }
}
