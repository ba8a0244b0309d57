// The command-line scanner and the first look at the debug level.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "command_line.h"

namespace {

// Scans without letting the scanner's debug-level side effects leak out.
CommandLine scanned(std::vector<const char*> args) {
    CommandLine cl;
    cl.scan(int(args.size()), args.data());
    return cl;
}

}  // namespace

// The scanner reads a lower-case copy and takes "-debug" too, level 0
// without a number; the early look, before anything else is set up,
// compares as typed, knows "-dbg" alone and makes it at least 1.
TEST(CommandLineScan, DebugLevelsOfTheScanAndOfTheEarlyLook) {
    const struct {
        std::vector<const char*> args;
        int scanned, early;
    } cases[] = {
        {{"kelvane2c", "-dbg3"}, 3, 3},
        {{"kelvane2c", "-dbg"}, 0, 1},
        {{"kelvane2c", "-DBG3"}, 3, 0},
        {{"kelvane2c", "-debug2"}, 2, 0},
        {{"kelvane2c", "-dbg5", "x", "-dbg2"}, 2, 2},  // the last one wins
        {{"kelvane2c", "a.tif"}, 0, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(scanned(c.args).debugLevel(), c.scanned) << c.args[1];
        EXPECT_EQ(CommandLine::earlyDebugLevel(int(c.args.size()), c.args.data()), c.early)
            << c.args[1];
    }
}

TEST(CommandLineScan, OptionsKeepBothSpellingsAndFilesAreCleaned) {
    CommandLine cl =
        scanned({"kelvane2c", "-Auto", "", "\"C:\\data\\run 1\\img_a.tif\"", "-CROSS", "b.par"});
    EXPECT_EQ(cl.options(), (std::vector<std::string>{"auto", "cross"}));
    EXPECT_EQ(cl.optionsOriginal(), (std::vector<std::string>{"Auto", "CROSS"}));
    EXPECT_EQ(cl.files(), (std::vector<std::string>{"C:/data/run 1/img_a.tif", "b.par"}));
    EXPECT_TRUE(cl.hasOption("auto"));
    EXPECT_EQ(cl.command(), "kelvane2c -Auto  \"C:\\data\\run 1\\img_a.tif\" -CROSS b.par");
    // A second scan starts from empty lists.
    const char* again[] = {"k"};
    cl.scan(1, again);
    EXPECT_TRUE(cl.options().empty());
    EXPECT_TRUE(cl.files().empty());
    EXPECT_EQ(cl.command(), "k");
}

// "-info" is matched whole: "-information" is another option.
TEST(CommandLineScan, HelpAndInfoFlags) {
    EXPECT_TRUE(scanned({"k", "-?"}).help());
    EXPECT_FALSE(scanned({"k", "-information"}).info());
}
