// Picking a unit or a memory by what a user typed.
#include <gtest/gtest.h>

#include "cli.hpp"
#include "name_lookup.hpp"

namespace ovex::cli {
namespace {

const std::vector<std::string> kUnits = {"NoBE", "TP2FE"};

std::string Refusal(std::string_view text, const std::vector<std::string>& names) {
    try {
        IndexByNameOrNumber(text, names, "power unit");
    } catch (const UsageError& error) {
        return error.what();
    }
    return "no error";
}

TEST(NameLookup, NamesInAnyCaseAndIndexesWithinTheList) {
    EXPECT_EQ(IndexByNameOrNumber("nobe", kUnits, "power unit"), 0u);
    EXPECT_EQ(IndexByNameOrNumber("tp2fe", kUnits, "power unit"), 1u);
    EXPECT_EQ(IndexByNameOrNumber("TP2FE", kUnits, "power unit"), 1u);
    EXPECT_EQ(IndexByNameOrNumber("1", kUnits, "power unit"), 1u);
    EXPECT_EQ(IndexByNameOrNumber("0", kUnits, "power unit"), 0u);
}

TEST(NameLookup, AnythingElseIsAUsageErrorListingWhatThereIs) {
    const std::string listing = "; the board has 0 NoBE, 1 TP2FE";
    EXPECT_EQ(Refusal("2", kUnits), "no power unit '2'" + listing);
    EXPECT_EQ(Refusal("tp2", kUnits), "no power unit 'tp2'" + listing);
    EXPECT_EQ(Refusal("-1", kUnits), "no power unit '-1'" + listing);
    EXPECT_EQ(Refusal("00000000000000000001", kUnits),
              "no power unit '00000000000000000001'" + listing);
    EXPECT_EQ(Refusal("", kUnits), "no power unit ''" + listing);
    EXPECT_EQ(Refusal("0", {}), "no power unit '0'; the board has none");
}

TEST(NameLookup, ANameThatIsANumberWinsOverTheIndex) {
    EXPECT_EQ(IndexByNameOrNumber("0", {"1", "0"}, "flash"), 1u);
}

}  // namespace
}  // namespace ovex::cli
