// The option core: options in any place, values checked, leftovers refused, locators.
#include <gtest/gtest.h>

#include "cli.hpp"

namespace ovex::cli {
namespace {

const CommandText kText = {"try", "LOCATOR [--seconds N]", "a test", ""};

Args ArgsOf(std::vector<std::string> words) {
    return Args(kText, std::move(words));
}

TEST(CliArgs, OptionsAnywhereAroundPositionalsAndCommonOnesTakenFirst) {
    Args args = ArgsOf({"--seconds", "2.5", "OVX00001", "-v", "--raw", "out.bin", "extra"});
    EXPECT_EQ(args.Verbosity(), 1);
    EXPECT_FALSE(args.HelpAsked());
    EXPECT_EQ(args.Number("--seconds", 0.001, 3600), 2.5);
    EXPECT_EQ(args.Value("--raw"), "out.bin");
    EXPECT_EQ(args.Value("--records"), std::nullopt);
    EXPECT_FALSE(args.Flag("--tsan"));
    EXPECT_EQ(args.Positional("LOCATOR"), "OVX00001");
    EXPECT_EQ(args.OptionalPositional(), "extra");
    EXPECT_EQ(args.OptionalPositional(), std::nullopt);
    EXPECT_NO_THROW(args.Finish());
    EXPECT_TRUE(ArgsOf({"x", "--help"}).HelpAsked());
    EXPECT_EQ(ArgsOf({"-vv", "-v"}).Verbosity(), 2);
}

TEST(CliArgs, BadValuesAndLeftoversAreUsageErrorsThatSayWhy) {
    auto message = [](auto&& call) {
        try {
            call();
        } catch (const UsageError& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_EQ(message([] { ArgsOf({"--seconds"}).Number("--seconds", 0, 10); }),
              "--seconds needs a value");
    EXPECT_EQ(message([] {
                  ArgsOf({"--seconds", "11"}).Number("--seconds", 0, 10);
              }),
              "--seconds takes a number from 0 to 10, not '11'");
    EXPECT_EQ(message([] {
                  ArgsOf({"--seconds", "1x"}).Number("--seconds", 0, 10);
              }),
              "--seconds takes a number from 0 to 10, not '1x'");
    EXPECT_EQ(message([] {
                  ArgsOf({"--seconds", "nan"}).Number("--seconds", 0, 10);
              }),
              "--seconds takes a number from 0 to 10, not 'nan'");
    EXPECT_EQ(message([] {
                  ArgsOf({"--frames", "1", "--frames", "2"}).Value("--frames");
              }),
              "--frames is given twice");
    EXPECT_EQ(message([] {
                  ArgsOf({"--frames", "-1"}).Count("--frames", 1, 100);
              }),
              "--frames takes a whole number from 1 to 100, not '-1'");
    EXPECT_EQ(message([] { ArgsOf({}).Positional("LOCATOR"); }), "missing LOCATOR");
    EXPECT_EQ(message([] { ArgsOf({"--bogus", "a"}).Finish(); }), "unknown option '--bogus'");
    EXPECT_EQ(message([] { ArgsOf({"a"}).Finish(); }), "unexpected argument 'a'");
}

TEST(CliLocator, IndexAndSerialShortFormsAndFullLocatorsAsTheyStand) {
    EXPECT_EQ(LocatorOf("0"), "usb:ix:0");
    EXPECT_EQ(LocatorOf("12"), "usb:ix:12");
    EXPECT_EQ(LocatorOf("OVX00001"), "usb:sn:OVX00001");
    EXPECT_EQ(LocatorOf("usb:sn:OVX00002"), "usb:sn:OVX00002");
    EXPECT_EQ(LocatorOf("usb:ix:3"), "usb:ix:3");
}

TEST(CliResult, LibraryResultsMapToStableExitCodes) {
    EXPECT_EQ(ExitCodeOf(OVEXSDK_ERR_NO_DEVICE), kExitNoDevice);
    EXPECT_EQ(ExitCodeOf(OVEXSDK_ERR_BUSY), kExitBusy);
    EXPECT_EQ(ExitCodeOf(OVEXSDK_ERR_FAILED), kExitFailed);
    EXPECT_EQ(ExitCodeOf(OVEXSDK_ERR_UNAVAILABLE), kExitFailed);
    try {
        Check(OVEXSDK_ERR_BUSY, "ovexsdk_dev_power_up");
        FAIL();
    } catch (const CommandError& error) {
        EXPECT_EQ(error.Code(), kExitBusy);
        EXPECT_STREQ(error.what(), "ovexsdk_dev_power_up failed: OVEXSDK_ERR_BUSY (-16)");
    }
}

}  // namespace
}  // namespace ovex::cli
