// The command-line scanner and the first look at the debug level.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "command_line.h"
#include "piv_messages.h"

namespace {

// Scans without letting the scanner's debug-level side effects leak out.
CommandLine scanned(std::vector<const char*> args) {
    CommandLine cl;
    cl.scan(int(args.size()), args.data());
    return cl;
}

}  // namespace

TEST(CommandLineScan, DebugLevels) {
    struct Case {
        std::vector<const char*> args;
        int level;
    };
    const Case cases[] = {
        {{"kelvane2c", "-dbg3"}, 3},
        {{"kelvane2c", "-dbg"}, 0},   // no number: level 0 through the scanner
        {{"kelvane2c", "-DBG3"}, 3},  // the scanner reads a lower-case copy
        {{"kelvane2c", "-debug2"}, 2},
        {{"kelvane2c", "-dbg1", "-dbg4"}, 4},  // the last one wins
        {{"kelvane2c", "a.tif"}, 0},
    };
    for (const Case& c : cases) EXPECT_EQ(scanned(c.args).debugLevel(), c.level) << c.args[1];
}

TEST(CommandLineEarlyLook, IsCaseSensitiveAndAtLeastOne) {
    struct Case {
        std::vector<const char*> args;
        int level;
    };
    const Case cases[] = {
        {{"kelvane2c", "-dbg3"}, 3},
        {{"kelvane2c", "-dbg"}, 1},     // no number: at least 1 here
        {{"kelvane2c", "-DBG3"}, 0},    // missed: this look compares as typed
        {{"kelvane2c", "-debug2"}, 0},  // only "-dbg" counts here
        {{"kelvane2c", "-dbg5", "x", "-dbg2"}, 2},
    };
    for (const Case& c : cases)
        EXPECT_EQ(CommandLine::earlyDebugLevel(int(c.args.size()), c.args.data()), c.level)
            << c.args[1];
}

TEST(CommandLineScan, OptionsKeepBothSpellingsAndFilesAreCleaned) {
    const CommandLine cl =
        scanned({"kelvane2c", "-Auto", "", "\"C:\\data\\run 1\\img_a.tif\"", "-CROSS", "b.par"});
    EXPECT_EQ(cl.options(), (std::vector<std::string>{"auto", "cross"}));
    EXPECT_EQ(cl.optionsOriginal(), (std::vector<std::string>{"Auto", "CROSS"}));
    EXPECT_EQ(cl.files(), (std::vector<std::string>{"C:/data/run 1/img_a.tif", "b.par"}));
    EXPECT_TRUE(cl.hasOption("auto"));
    EXPECT_FALSE(cl.hasOption("speckle"));
    EXPECT_EQ(cl.command(), "kelvane2c -Auto  \"C:\\data\\run 1\\img_a.tif\" -CROSS b.par");
}

TEST(CommandLineScan, HelpAndInfoFlags) {
    EXPECT_TRUE(scanned({"k", "-help"}).help());
    EXPECT_TRUE(scanned({"k", "-?"}).help());
    EXPECT_TRUE(scanned({"k", "-HELP"}).help());
    EXPECT_TRUE(scanned({"k", "-info"}).info());
    EXPECT_FALSE(scanned({"k", "-information"}).info());
    EXPECT_EQ(scanned({"k", "-information"}).options(), (std::vector<std::string>{"information"}));
}

TEST(CommandLineScan, RescanStartsFromEmptyLists) {
    CommandLine cl;
    const char* first[] = {"k", "-auto", "a.tif"};
    cl.scan(3, first);
    const char* second[] = {"k"};
    cl.scan(1, second);
    EXPECT_TRUE(cl.options().empty());
    EXPECT_TRUE(cl.files().empty());
    EXPECT_EQ(cl.command(), "k");
}

TEST(CommandLineScan, NoArgumentsAppliesTheStoredLevel) {
    const int old = DebugLevel();
    CommandLine cl;
    cl.setDebugLevel(2);
    cl.scan(0, nullptr);
    EXPECT_EQ(DebugLevel(), 2);
    EXPECT_TRUE(cl.debug());
    SetDebugLevel(old);
}

TEST(CommandLine, HelpTextAsShown) {
    EXPECT_STREQ(CommandLine::helpText(),
                 "Kelvane command line options:\n\t-auto\tswitch to autocorrelation mode\n"
                 "\t-cross\tswitch to standard cross-correlation mode (default)\n"
                 "\t-speckle\tswitch to speckle-shift mode\n\t-bos\tswitch to speckle-shift "
                 "mode\n\t-help\tshows this help message\n\nThe last argument specifies the "
                 "file to load which may be\nan image, a PIV-data set or parameter file.");
}
