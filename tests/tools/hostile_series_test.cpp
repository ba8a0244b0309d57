// A night's batch with damaged files in it: 50 pairs, 5 frames replaced by
// broken copies. Every other result must be written, each broken file named
// with its reason, and the evaluator must stay small while it refuses them.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "message_capture.h"
#include "scratch_files.h"

using test_support::ScratchDir;

namespace {

int RunQuiet(const std::string& cmd) {
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// night0007 for pair 7, then what follows: "a.pgm", "b.pgm".
std::string Night(int pair, const char* rest = "") {
    char name[64];
    std::snprintf(name, sizeof(name), "night%04d%s", pair, rest);
    return name;
}

std::string Frame(const ScratchDir& dir, int pair, char which) {
    return dir.file(Night(pair, which == 'a' ? "a.pgm" : "b.pgm"));
}

}  // namespace

TEST(HostileSeries, DamagedFramesCostOnlyTheirPairs) {
    ScratchDir dir;
    constexpr int kPairs = 50;
    for (int i = 1; i <= kPairs; i++) {
        const std::string cmd = std::string("'") + KELVANE_SYNTH_TOOL + "' --size 96 --seed " +
                                std::to_string(i) + " --dx 1.5 '" + Frame(dir, i, 'a') + "' '" +
                                Frame(dir, i, 'b') + "' '" + dir.file("truth.nc") + "'";
        ASSERT_EQ(RunQuiet(cmd), 0) << cmd;
    }
    // Five ways a file breaks: cut short, a header claiming far more than
    // the file holds (twice), random bytes, and nothing at all.
    const std::string whole = test_support::ReadBytes(Frame(dir, 7, 'a'));
    const std::string header = whole.substr(0, whole.find("255\n") + 4);
    test_support::WriteBytes(Frame(dir, 7, 'a'), whole.substr(0, whole.size() / 5));
    test_support::WriteBytes(Frame(dir, 13, 'b'), "P5 65536 65536\n65535\nab");
    test_support::WriteBytes(Frame(dir, 21, 'a'), "P5 30000 30000\n255\n" + whole.substr(header.size()));
    std::mt19937 rng(5);
    std::string noise(9000, '\0');
    for (char& c : noise) c = char(rng() & 0xff);
    test_support::WriteBytes(Frame(dir, 34, 'b'), noise);
    test_support::WriteBytes(Frame(dir, 42, 'a'), "");
    const int damaged[] = {7, 13, 21, 34, 42};

    const std::string err = dir.file("stderr.txt");
    // A reader that trusted a header would ask for gigabytes; the cap turns
    // that into a failed allocation instead of the machine's OOM killer.
#if defined(__SANITIZE_ADDRESS__)
    const std::string cap = "ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=1024 ";
#else
    const std::string cap = "ulimit -v 4194304; ";
#endif
    const std::string cmd = cap + "'" + KELVANE_EVAL_TOOL +
                            "' --method single --window 32 --step 16 --series '" +
                            Frame(dir, 1, 'a') + "' '" + Frame(dir, kPairs, 'a') +
                            "' --output-dir '" + dir.file("out") + "' 2> '" + err + "'";
    const int exit = RunQuiet(cmd);
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    const std::string said = test_support::ReadBytes(err);
    EXPECT_EQ(exit, 1) << said;
    // ru_maxrss is in kilobytes: the largest child of this test, the tool
    // included, never held 1 GB.
    EXPECT_LT(usage.ru_maxrss, 1024L * 1024L) << "peak resident " << usage.ru_maxrss << " kB";
    int written = 0;
    for (int i = 1; i <= kPairs; i++) {
        const bool exists = std::ifstream(dir.file("out/" + Night(i, "a.nc"))).good();
        const bool isDamaged =
            std::find(std::begin(damaged), std::end(damaged), i) != std::end(damaged);
        EXPECT_EQ(exists, !isDamaged) << Night(i);
        written += exists;
        EXPECT_TRUE(!isDamaged || HasText(said, Night(i))) << said;
    }
    EXPECT_EQ(written, kPairs - 5);
}
