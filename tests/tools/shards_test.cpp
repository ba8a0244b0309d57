// One series evaluated as three shards, one of them stopped and resumed,
// merged: the statistics equal those of one unbroken run on one node. The
// partials are read back by ncdump; damaged sets of partials are refused.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_data2d_stats.h"
#include "scratch_files.h"

using test_support::ScratchDir;

namespace {

struct Outcome {
    int exit = -1;
    std::string out, err;
};

Outcome Shell(const ScratchDir& dir, const std::string& cmd) {
    const std::string out = dir.file("stdout.txt"), err = dir.file("stderr.txt");
    const int status = std::system((cmd + " > '" + out + "' 2> '" + err + "'").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, test_support::ReadBytes(out),
            test_support::ReadBytes(err)};
}

Outcome Eval(const ScratchDir& dir, const std::vector<std::string>& args) {
    std::string cmd = std::string("'") + KELVANE_EVAL_TOOL + "'";
    for (const std::string& a : args) cmd += " '" + a + "'";
    return Shell(dir, cmd);
}

std::string Frame(const ScratchDir& dir, int i, char ab) {
    return dir.file("run000" + std::to_string(i) + ab + ".tif");
}

// n pairs of 96 px, pair i shifted by 1 + i/10 px.
void MakePairs(const ScratchDir& dir, int n) {
    for (int i = 1; i <= n; i++)
        ASSERT_EQ(Shell(dir, std::string("'") + KELVANE_SYNTH_TOOL + "' --size 96 --seed " +
                                 std::to_string(i) + " --dx " + std::to_string(1.0 + 0.1 * i) +
                                 " '" + Frame(dir, i, 'a') + "' '" + Frame(dir, i, 'b') + "' '" +
                                 dir.file("t.nc") + "'")
                      .exit,
                  0);
}

// True when b is a or one float step from it.
bool WithinOneUlp(float a, float b) {
    return a == b || std::nextafter(a, b) == b;
}

}  // namespace

TEST(KelvaneEvalShards, ThreeShardsResumedAndMergedEqualOneRun) {
    ScratchDir dir;
    MakePairs(dir, 7);
    const std::vector<std::string> series = {"--series", Frame(dir, 1, 'a'), Frame(dir, 7, 'a'),
                                             "--stats", "--quiet"};
    auto run = [&](const std::string& out, std::vector<std::string> extra) {
        extra.insert(extra.begin(), series.begin(), series.end());
        extra.insert(extra.end(), {"--output-dir", dir.file(out)});
        return Eval(dir, extra);
    };
    ASSERT_EQ(run("one", {}).exit, 0);
    // Blocks of 3, 2 and 2 pairs.
    for (int k = 0; k < 3; k++)
        ASSERT_EQ(run("sh", {"--shard", std::to_string(k) + "/3"}).exit, 0) << k;
    const Outcome header = Shell(dir, "ncdump -h '" + dir.file("sh/series_shard1of3.nc") + "'");
    for (const char* line : {"double stats_M4(stats_node, stats_quantity)", "shard_index = 1",
                             "shard_data_sets = 2", "run0004a.tif"})
        EXPECT_TRUE(HasText(header.out, line));

    // Shard 1 stopped after its first pair (run0004): no partial, run0005
    // not written. Resumed, it keeps run0004 as it was.
    std::filesystem::rename(dir.file("sh/series_shard1of3.nc"), dir.file("unbroken.nc"));
    std::filesystem::remove(dir.file("sh/run0005a.nc"));
    struct stat before, after;
    ASSERT_EQ(stat(dir.file("sh/run0004a.nc").c_str(), &before), 0);
    ASSERT_EQ(run("sh", {"--shard", "1/3"}).exit, 0);
    ASSERT_EQ(stat(dir.file("sh/run0004a.nc").c_str(), &after), 0);
    EXPECT_TRUE(after.st_ino == before.st_ino && after.st_mtim.tv_sec == before.st_mtim.tv_sec &&
                after.st_mtim.tv_nsec == before.st_mtim.tv_nsec);
    // The field read back from run0004a.nc sums as the one evaluated but
    // for three quantities no written file shows: the speckle shifts sx, sy,
    // which a cross-correlation result does not store (read back as 0), and
    // meanSquaredCorr, which the reader rebuilds from corr and the SNR
    // (0.0030 off at worst here).
    PIV_Data2D_Stats unbroken, again;
    STATS_SHARD shard;
    ASSERT_TRUE(unbroken.loadPartial(dir.file("unbroken.nc").c_str(), shard));
    ASSERT_TRUE(again.loadPartial(dir.file("sh/series_shard1of3.nc").c_str(), shard));
    using S = PIV_Data2D_Stats;
    for (int k = 0; k < unbroken.avgData()->nodeCount(); k++)
        for (int q = 0; q < S::Q_COUNT; q++) {
            const double a = again.nodeStats()[k].q[q].mean, e = unbroken.nodeStats()[k].q[q].mean;
            if (q == S::Q_SX || q == S::Q_SY) continue;
            EXPECT_NEAR(a, e, q == S::Q_MSCORR ? 0.005 : 0.0) << k << " " << q;
        }

    ASSERT_EQ(Eval(dir, {"--merge-stats", "--output-dir", dir.file("sh")}).exit, 0);
    for (const char* name : {"series_avg.nc", "series_rms.nc"}) {
        PIV_Data2D merged, whole;
        ASSERT_TRUE(merged.load(dir.file(std::string("sh/") + name).c_str()));
        ASSERT_TRUE(whole.load(dir.file(std::string("one/") + name).c_str()));
        ASSERT_EQ(merged.nodeCount(), whole.nodeCount());
        for (int k = 0; k < whole.nodeCount(); k++) {
            const PIV_VECTOR &m = merged.data()[k], &w = whole.data()[k];
            EXPECT_TRUE(m.count == w.count && WithinOneUlp(m.dx, w.dx) &&
                        WithinOneUlp(m.dy, w.dy) && WithinOneUlp(m.corr, w.corr))
                << name << " node " << k;
        }
    }
}

// Damaged sets of partials, each in a folder of its own: a clear error that
// names the file, exit 2 and no statistics written.
TEST(KelvaneEvalShards, BadPartialsAndShardsAreRefused) {
    ScratchDir dir;
    MakePairs(dir, 3);
    auto shard = [&](const std::string& out, const std::string& kn, const char* step) {
        return Eval(dir, {"--series", Frame(dir, 1, 'a'), Frame(dir, 3, 'a'), "--stats", "--step",
                          step, "--shard", kn, "--output-dir", dir.file(out)});
    };
    for (const char* kn : {"0/2", "1/2"}) ASSERT_EQ(shard("good", kn, "16").exit, 0);
    ASSERT_EQ(shard("coarse", "1/2", "32").exit, 0);
    auto partial = [&](const char* folder, int k, int n) {
        return dir.file(std::string(folder) + "/series_shard" + std::to_string(k) + "of" +
                        std::to_string(n) + ".nc");
    };
    const std::string s0 = partial("good", 0, 2), s1 = partial("good", 1, 2);
    const std::string torn = test_support::ReadBytes(s1);
    struct Case {
        const char* folder;
        std::vector<std::pair<std::string, std::string>> files;  // to, content
        std::string said;
    } cases[] = {
        {"grid", {{"0of2", s0}, {"1of2", partial("coarse", 1, 2)}}, "grid mismatch: 9 vs 25"},
        {"twice", {{"0of2", s0}, {"1of2", s1}, {"01of2", s1}}, "block 1 twice"},
        {"missing", {{"1of2", s1}}, "no " + partial("missing", 0, 2)},
        {"mixed", {{"0of2", s0}, {"1of2", s1}, {"0of3", s0}}, "different shard counts"},
        {"foreign", {{"0of2", s0}, {"1of2", s0}}, "holds block 0 of 2, not the one of its name"},
        {"torn", {{"0of2", s0}, {"1of2", ""}}, "cannot read partial"},
    };
    for (const Case& c : cases) {
        std::filesystem::create_directory(dir.file(c.folder));
        for (const auto& [to, from] : c.files) {
            const std::string target =
                dir.file(std::string(c.folder) + "/series_shard" + to + ".nc");
            if (from.empty())
                test_support::WriteBytes(target, torn.substr(0, torn.size() / 2));
            else
                std::filesystem::copy_file(from, target);
        }
        const Outcome o = Eval(dir, {"--merge-stats", "--output-dir", dir.file(c.folder)});
        EXPECT_EQ(o.exit, 2) << c.folder;
        EXPECT_TRUE(HasText(o.err, c.said) && HasText(o.err, dir.file(c.folder) + "/series_shard"));
        EXPECT_FALSE(std::filesystem::exists(dir.file(std::string(c.folder) + "/series_avg.nc")));
    }
    // A frame missing here fails its own pair only: shard 1 of 2 still
    // holds the third pair, as it does on a node that has all frames.
    std::filesystem::remove(Frame(dir, 2, 'a'));
    const Outcome gap = shard("gap", "0/2", "16");
    EXPECT_EQ(gap.exit, 1);
    EXPECT_TRUE(HasText(gap.err, "run0002a.tif")) << gap.err;
    ASSERT_EQ(shard("gap", "1/2", "16").exit, 0);
    EXPECT_TRUE(HasText(Shell(dir, "ncdump -h '" + partial("gap", 1, 2) + "'").out,
                        "shard_first_pair = \"" + Frame(dir, 3, 'a')));
    for (const auto& [args, said] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--shard", "4/4"}, "bad value for --shard: 4/4"},
             {{"--shard", "0/0"}, "bad value for --shard: 0/0"},
             {{"--shard", "1/2", Frame(dir, 1, 'a'), "-o", dir.file("x.nc")}, "needs --series"},
             {{"--shard", "0/2", "--stats", "--format", "dat", "--series", Frame(dir, 1, 'a'),
               Frame(dir, 3, 'a'), "--output-dir", dir.file("dat")},
              "needs nc among --format"}}) {
        const Outcome o = Eval(dir, args);
        EXPECT_EQ(o.exit, 2);
        EXPECT_TRUE(HasText(o.err, said)) << o.err;
    }
}
