// Writes the recording that the Python acquisition benchmark replays through the virtual board:
// the same stream as board_acquisition_bench's (about two million hits in the real detector
// disorder, 40 M hits/s of chip time), as the board's raw bytes that `ovex-vboard run --replay`
// plays.
//   python_bench_recording OUT.bin
#include <cstdio>

#include "support/recording.hpp"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUT.bin\n", argv[0]);
        return 2;
    }
    const tpx3_stream::GeneratedStream stream = ovex::bench::RealDisorderRecording();

    std::FILE* out = std::fopen(argv[1], "wb");
    if (!out) {
        std::perror(argv[1]);
        return 1;
    }
    const bool written =
        std::fwrite(stream.bytes.data(), 1, stream.bytes.size(), out) == stream.bytes.size();
    if (std::fclose(out) != 0 || !written) {
        std::perror(argv[1]);
        return 1;
    }
    std::printf("%s: %zu packets, %zu bytes\n", argv[1], stream.packet_count, stream.bytes.size());
    return 0;
}
