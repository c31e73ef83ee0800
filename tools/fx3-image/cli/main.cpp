// ovex-fx3-image: writes an application image for the board's USB controller, as the firmware
// build embeds them in the library.

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ovex/fx3img/image_builder.hpp"

namespace {

void PrintUsage(std::FILE* out) {
    std::fprintf(out,
                 "Usage: ovex-fx3-image --board-id ID --pcb VERSION --firmware VERSION --size N "
                 "--out FILE\n"
                 "Writes a boot image of exactly N bytes whose descriptor names the board id, the\n"
                 "PCB version it runs on and the firmware version. The same arguments give the\n"
                 "same bytes.\n\n"
                 "Example:\n"
                 "  ovex-fx3-image --board-id TPX3EFE --pcb 3.03 --firmware 0.24.3-TPX3 "
                 "--size 252448 --out ovbd-fw_v3_0_3.img\n");
}

// The value of every option, or an empty map after printing what is wrong.
std::map<std::string, std::string> ParseOptions(int argc, char** argv) {
    static const char* const kOptions[] = {"--board-id", "--pcb", "--firmware", "--size", "--out"};
    std::map<std::string, std::string> values;
    for (int i = 1; i < argc; i += 2) {
        const std::string option = argv[i];
        const bool known = std::find_if(std::begin(kOptions), std::end(kOptions),
                                        [&option](const char* name) { return option == name; }) !=
                           std::end(kOptions);
        if (!known || i + 1 >= argc) {
            std::fprintf(stderr, "ovex-fx3-image: %s '%s'\n",
                         known ? "missing value of" : "unknown option", option.c_str());
            return {};
        }
        values[option] = argv[i + 1];
    }
    for (const char* option : kOptions) {
        if (!values.contains(option)) {
            std::fprintf(stderr, "ovex-fx3-image: missing option %s\n", option);
            return {};
        }
    }
    return values;
}

bool ParseSize(const std::string& text, std::size_t& size) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0 || text[0] == '-') {
        return false;
    }
    size = static_cast<std::size_t>(value);
    return true;
}

// Writes beside the target and renames, so that a failed run leaves no truncated image behind.
bool WriteFile(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    const std::string partial = path + ".partial";
    {
        std::ofstream out(partial, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
        if (!out.flush()) {
            std::fprintf(stderr, "ovex-fx3-image: cannot write '%s'\n", partial.c_str());
            std::remove(partial.c_str());
            return false;
        }
    }
    if (std::rename(partial.c_str(), path.c_str()) != 0) {
        std::fprintf(stderr, "ovex-fx3-image: cannot rename '%s' to '%s': %s\n", partial.c_str(),
                     path.c_str(), std::strerror(errno));
        std::remove(partial.c_str());
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        PrintUsage(stdout);
        return EXIT_SUCCESS;
    }
    const auto options = ParseOptions(argc, argv);
    std::size_t size = 0;
    if (options.empty()) {
        PrintUsage(stderr);
        return EXIT_FAILURE;
    }
    if (!ParseSize(options.at("--size"), size)) {
        std::fprintf(stderr, "ovex-fx3-image: bad size '%s'\n", options.at("--size").c_str());
        return EXIT_FAILURE;
    }
    std::vector<std::uint8_t> image;
    try {
        image = ovex::fx3img::BuildApplicationImage(
            {options.at("--board-id"), options.at("--pcb"), options.at("--firmware")}, size);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "ovex-fx3-image: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return WriteFile(options.at("--out"), image) ? EXIT_SUCCESS : EXIT_FAILURE;
}
