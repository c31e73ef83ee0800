#include "name_lookup.hpp"

#include <algorithm>
#include <cctype>

#include "cli.hpp"

namespace ovex::cli {
namespace {

bool SameIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

bool IsNumber(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) != 0;
    });
}

}  // namespace

std::size_t IndexByNameOrNumber(std::string_view text, const std::vector<std::string>& names,
                                std::string_view what) {
    const auto named = std::find_if(names.begin(), names.end(), [text](const std::string& name) {
        return SameIgnoringCase(name, text);
    });
    if (named != names.end()) {
        return static_cast<std::size_t>(named - names.begin());
    }
    // A name that is all digits would have matched above, so a number here is an index.
    if (IsNumber(text) && text.size() < 4 && std::stoul(std::string(text)) < names.size()) {
        return std::stoul(std::string(text));
    }
    std::string known;
    for (std::size_t i = 0; i < names.size(); ++i) {
        known += (i == 0 ? "" : ", ") + std::to_string(i) + " " + names[i];
    }
    throw UsageError("no " + std::string(what) + " '" + std::string(text) + "'; the board has " +
                     (names.empty() ? std::string("none") : known));
}

}  // namespace ovex::cli
