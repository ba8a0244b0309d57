// Memory refused on purpose. Every public operation then answers false
// with error 7 (std::bad_alloc never leaves the library through a function
// that answers true or false), and a parallel region, which cannot hand an
// exception to its caller, allocates nothing at all: with every allocation
// inside one refused, the evaluation gives the same field as without.
#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "eval_test_support.h"
#include "image2d.h"
#include "piv_data2d.h"
#include "piv_eval2d.h"
#include "scratch_files.h"
#include "synthetic_flows.h"

namespace {

std::atomic<size_t> g_refuseFrom{SIZE_MAX};  // refuse requests from this many bytes ...
std::atomic<size_t> g_refuseTo{SIZE_MAX};    // ... up to and without this many
std::atomic<bool> g_refuseInTeams{false};    // refuse every request inside a parallel region

void* Allocate(size_t n) {
    if (n >= g_refuseFrom.load(std::memory_order_relaxed) &&
        n < g_refuseTo.load(std::memory_order_relaxed))
        return nullptr;
    if (g_refuseInTeams.load(std::memory_order_relaxed) && omp_get_level() > 0) return nullptr;
    return std::malloc(n ? n : 1);
}

void* AllocateOrThrow(size_t n) {
    if (void* p = Allocate(n)) return p;
    throw std::bad_alloc();
}

// Refusal for the lifetime of the scope.
struct RefuseSizes {
    RefuseSizes(size_t from, size_t to) {
        g_refuseTo = to;
        g_refuseFrom = from;
    }
    ~RefuseSizes() { g_refuseFrom = g_refuseTo = SIZE_MAX; }
};
struct RefuseInTeams {
    RefuseInTeams() { g_refuseInTeams = true; }
    ~RefuseInTeams() { g_refuseInTeams = false; }
};

}  // namespace

void* operator new(size_t n) {
    return AllocateOrThrow(n);
}
void* operator new[](size_t n) {
    return AllocateOrThrow(n);
}
void* operator new(size_t n, const std::nothrow_t&) noexcept {
    return Allocate(n);
}
void* operator new[](size_t n, const std::nothrow_t&) noexcept {
    return Allocate(n);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
    std::free(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}

namespace {

constexpr size_t kMegabyte = size_t(1) << 20;

// A 1024 x 1024 pair of a gentle vortex: the evaluations below need several
// megabytes for frames, coefficients and fields.
const synth::SyntheticPair& Pair() {
    static const synth::SyntheticPair pair = synth::RenderPair(
        eval_test::StandardParams(1024, 5), synth::LambOseenVortex(512, 512, 300.0, 120.0));
    return pair;
}

PIVEVAL_CFG MultiGridDeformed() {
    PIVEVAL_CFG cfg = eval_test::SinglePass(32, 16, 1);
    cfg.Method = PIV::METHOD_MULTI_GRID;
    cfg.MultiGrid_SampleSize = SIZE3D{64, 64, 1};
    cfg.MultiGrid_SampleStep = SIZE3D{32, 32, 1};
    cfg.MultiGrid_Desample = 1;
    cfg.MultiGrid_FinalScans = 1;
    cfg.ImageMapping2D.Mode = 2;
    cfg.ImageMapping2D.Method = PIV::INTERPOLATE_BSPLINE;
    cfg.ImageMapping2D.Order = 3;
    return cfg;
}

struct Outcome {
    bool ok;
    std::string text;  // the last error; the allocation failure may be its reason
};

}  // namespace

// Each operation is refused the requests of one range of sizes: from a
// megabyte up, or, for the load, just the megabyte of one variable of a
// 512 x 512 field (the field itself, 20 MB, is allowed, so that the refusal
// meets the read). Inputs are built before the refusal starts. The error
// names the failed allocation, as its own text or as the reason of the
// operation's failure.
TEST(AllocationFailure, PublicOperationsReportTheFailedAllocation) {
    struct Case {
        const char* name;
        size_t from, to;
        std::function<Outcome()> run;
    };
    PIV_Data2D field;
    ASSERT_TRUE(field.createZeroData(SIZE3D{4096, 4096, 1}, SIZE3D{8, 8, 1}, POINT3D{0, 0, 0},
                                     POINT3D{4088, 4088, 0}, 1));
    test_support::ScratchDir dir;
    const std::string saved = dir.file("field.nc");
    ASSERT_TRUE(field.saveNetCDF(saved.c_str()));
    PIV_Data2D loaded;
    Image2D frame = eval_test::ToImage(Pair().a, Pair().width, Pair().height, IMAGE_FLOAT);
    eval_test::Evaluation deformed(Pair(), MultiGridDeformed());

    const Case cases[] = {
        {"PIV_Data2D::medianFilter", kMegabyte, SIZE_MAX,
         [&] {
             return Outcome{field.medianFilter(3), field.error().getLastError()};
         }},
        {"PIV_Data2D::load", kMegabyte, 2 * kMegabyte,
         [&] {
             return Outcome{loaded.load(saved.c_str()), loaded.error().getLastError()};
         }},
        {"Image2D::highPass", kMegabyte, SIZE_MAX,
         [&] {
             return Outcome{frame.highPass(5, 5), frame.error().getLastError()};
         }},
        {"PIV_Eval2D::interrogateImage", kMegabyte, SIZE_MAX,
         [&] {
             return Outcome{deformed.run(), deformed.eval->getLastError()};
         }},
    };
    for (const Case& c : cases) {
        Outcome got{true, ""};
        {
            RefuseSizes refuse(c.from, c.to);
            try {
                got = c.run();
            } catch (const std::bad_alloc&) {
                ADD_FAILURE() << c.name << " let std::bad_alloc through";
                continue;
            }
        }
        EXPECT_FALSE(got.ok) << c.name;
        EXPECT_NE(std::string(got.text).find("memory allocation failed"), std::string::npos)
            << c.name << ": " << got.text;
    }
}

// The evaluation's workers, the warp and the spline prefilter find every
// buffer in place: refusing all memory inside parallel regions changes
// nothing, where one allocation there would end the process.
TEST(AllocationFailure, ParallelRegionsAllocateNothing) {
    for (const PIVEVAL_CFG& cfg : {eval_test::SinglePass(32, 16, 5), MultiGridDeformed()}) {
        eval_test::Evaluation reference(Pair(), cfg);
        ASSERT_TRUE(reference.run());
        eval_test::Evaluation refused(Pair(), cfg);
        bool ok = false;
        {
            RefuseInTeams refuse;
            ok = refused.run();
        }
        ASSERT_TRUE(ok) << refused.eval->getLastError();
        ASSERT_EQ(refused.field().nodeCount(), reference.field().nodeCount());
        int differ = 0;
        for (int k = 0; k < reference.field().nodeCount(); k++) {
            const PIV_VECTOR &a = reference.field().data()[k], &b = refused.field().data()[k];
            differ += a.dx != b.dx || a.dy != b.dy || a.flag != b.flag;
        }
        EXPECT_EQ(differ, 0) << "method " << cfg.Method;
    }
}
