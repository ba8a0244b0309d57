// NetCDF data files, checked by independent readers: ncdump for the layout,
// the plain netCDF C API for values and for writing foreign inputs.
#include <gtest/gtest.h>
#include <netcdf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "image2d.h"
#include "image2d_deformation.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_ncfile.h"
#include "piv_params.h"
#include "piv_params_io.h"
#include "scratch_files.h"

using test_support::ReadBytes;
using test_support::ScratchDir;
using testing::IsSubstring;

namespace {

int Entries(const ScratchDir& dir) {
    return int(std::distance(std::filesystem::directory_iterator(dir.path()),
                             std::filesystem::directory_iterator()));
}

// The header as ncdump prints it.
std::string Ncdump(const std::string& file) {
    std::string out;
    std::unique_ptr<FILE, int (*)(FILE*)> p(::popen(("ncdump -h '" + file + "'").c_str(), "r"),
                                            ::pclose);
    char buf[4096];
    while (p && std::fgets(buf, sizeof(buf), p.get())) out += buf;
    return out;
}

struct NcId {
    int id = -1;
    explicit NcId(const std::string& path, int mode = NC_NOWRITE) {
        if (nc_open(path.c_str(), mode, &id) != NC_NOERR) id = -1;
    }
    NcId(int cmode, const std::string& path) {
        if (nc_create(path.c_str(), cmode, &id) != NC_NOERR) id = -1;
    }
    ~NcId() {
        if (id >= 0) nc_close(id);
    }
    std::vector<float> floats(const char* name) const {
        int var = -1;
        if (nc_inq_varid(id, name, &var) != NC_NOERR) return {};
        int ndims = 0, dims[NC_MAX_VAR_DIMS];
        nc_inq_var(id, var, nullptr, nullptr, &ndims, dims, nullptr);
        size_t n = 1;
        for (int i = 0; i < ndims; i++) {
            size_t len = 0;
            nc_inq_dimlen(id, dims[i], &len);
            n *= len;
        }
        std::vector<float> v(n);
        nc_get_var_float(id, var, v.data());
        return v;
    }
    // What a foreign writer puts in a native field of 2 x 2 nodes: the
    // content attribute and piv_data, whose id comes back.
    int defineNative() const {
        nc_put_att_text(id, NC_GLOBAL, "file_content", 12, "Kelvane Data");
        int dims[4], var;
        nc_def_dim(id, "data_array_depth", 1, &dims[0]);
        nc_def_dim(id, "data_array_height", 2, &dims[1]);
        nc_def_dim(id, "data_array_width", 2, &dims[2]);
        nc_def_dim(id, "vec_dims", 2, &dims[3]);
        nc_def_var(id, "piv_data", NC_FLOAT, 4, dims, &var);
        return var;
    }
};

struct Release {
    void operator()(PIV_Data2D* f) const { f->release(); }
};
using Field = std::unique_ptr<PIV_Data2D, Release>;

// A 4 x 3 field on a 64 x 48 image, step 16, with distinct values.
Field MakeField(int steps = 1, bool threeC = false, bool peaks = false) {
    DATA_GRID4D g;
    g.nodes = {4, 3, 1};
    g.timeSteps = steps;
    g.step = {16, 16, 1};
    g.imageSize = {64, 48, 1};
    g.first = {8, 8, 0};
    Field f(new PIV_Data2D(g));
    PIV_VECTOR* v = f->data();
    for (int k = 0; k < f->nodeCount(); k++) {
        v[k].dx = 0.5f + k;
        v[k].dy = -0.25f * k;
        v[k].dz = threeC ? 0.125f * k : 0;
        v[k].corr = 0.01f * k;
        v[k].snr = 1.5f + k;
        v[k].flag = uint8_t(k % 2 ? VECTOR_ENABLED : VECTOR_OUTLIER);
        v[k].count = 10 + k;
        for (int p = 0; p < 3; p++) v[k].peak[p] = {float(p + k), float(p - k), 0.1f * p};
    }
    f->setFlag3C(threeC);
    f->setFlagMultiplePeaks(peaks);
    f->setFlagRawData(true);
    f->setDataType(PIV::DATA_DISPLACEMENT | PIV::DATA_FLAGS);
    f->setTime(0.0, 0.5);
    return f;
}

OUTPUT_CFG Native() {
    OUTPUT_CFG o;
    o.OutputFormat = 3;
    return o;
}

// Each test writes to a scratch folder of its own.
class NetCDF : public testing::Test {
protected:
    ScratchDir dir;
};

}  // namespace

TEST_F(NetCDF, NcdumpShowsTheNativeLayout) {
    Field f = MakeField(1, false, true);
    const std::string file = dir.file("field.nc");
    ASSERT_TRUE(f->save(file.c_str(), 0, Native()));
    const std::string h = Ncdump(file);
    for (const char* s :
         {"data_array_depth = 1 ;", "data_array_height = 3 ;", "data_array_width = 4 ;",
          "vec_dims = 2 ;", "data_array_peakcomps = 3 ;", "float piv_correlation_coeff(",
          "float piv_snr_data(", ":file_content = \"Kelvane Data\" ;",
          ":image_info = \"image origin (0,0) at lower-left\"", ":ev_origin_of_evaluation_x = 8 ;",
          ":ev_origin_of_evaluation_y = 8 ;", ":ev_origin_of_evaluation = 8.f, 8.f ;",
          ":number_of_peaks = 3 ;", "piv_data:long_name = \"raw displacement data\" ;",
          "piv_data:time_step_idx = 0 ;", "piv_data:coord_min = 8., 8., 0. ;",
          "piv_data:coord_max = 56., 40., 0. ;", "piv_flags:long_name = \"validation flags\" ;",
          ":ev_IS_grid_distance_x = 16 ;"})
        EXPECT_PRED_FORMAT2(IsSubstring, s, h);
    for (const char* s :
         {":ev_method = \"", ":outlier_check = ",
          "float piv_data(data_array_depth, data_array_height, data_array_width, vec_dims) ;",
          "byte piv_flags(data_array_depth, data_array_height, data_array_width) ;",
          "piv_peak3(data_array_depth, data_array_height, data_array_width, data_array_peakcomps)"})
        EXPECT_PRED_FORMAT2(IsSubstring, s, h);
    EXPECT_PRED_FORMAT2(IsSubstring, ":long_name = \"" + file + "\"", h);
    EXPECT_EQ(h.find("data_array_time"), std::string::npos);
    EXPECT_EQ(h.find(".tmp-"), std::string::npos);
    EXPECT_EQ(Entries(dir), 1);

    // Values through the C API: rows flipped, file row 0 is the bottom.
    const std::vector<float> d = NcId(file).floats("piv_data");
    ASSERT_EQ(d.size(), 24u);
    for (int r = 0; r < 3; r++)
        for (int i = 0; i < 4; i++) {
            const PIV_VECTOR v = f->getVector2D(2 - r, i);
            EXPECT_EQ(d[size_t(2 * (r * 4 + i))], v.dx);
            EXPECT_EQ(d[size_t(2 * (r * 4 + i) + 1)], v.dy);
        }
}

// Where the field came from rides along as global texts after the file's
// own: a copy of the field carries them and the file still loads. A name
// the file uses itself keeps the file's value; one the library refuses
// fails the save and leaves the earlier file.
TEST_F(NetCDF, ProvenanceAttributesFollowTheField) {
    Field f = MakeField();
    f->setFileAttributes({{"history", "kelvane-eval --window 32 run.im7 -o p.nc"},
                          {"image_b", "run.im7 (frame 2)"},
                          {"file_content", "mine"}});
    PIV_Data2D copy;
    ASSERT_TRUE(copy.copy(*f));
    const std::string file = dir.file("p.nc");
    ASSERT_TRUE(copy.saveNetCDF(file.c_str()));
    const std::string h = Ncdump(file);
    EXPECT_PRED_FORMAT2(IsSubstring, ":history = \"kelvane-eval --window 32 run.im7 -o p.nc\" ;",
                        h);
    EXPECT_PRED_FORMAT2(IsSubstring, ":image_b = \"run.im7 (frame 2)\" ;", h);
    EXPECT_PRED_FORMAT2(IsSubstring, ":file_content = \"Kelvane Data\" ;", h);
    EXPECT_LT(h.find(":ev_method"), h.find(":history"));
    PIV_Data2D back(file.c_str());
    EXPECT_EQ(back.nodeCount(), 12) << back.getLastError();
    copy.setFileAttributes({{"no/slash", "x"}});
    EXPECT_FALSE(copy.saveNetCDF(file.c_str()));
    EXPECT_PRED_FORMAT2(IsSubstring, "'no/slash'", copy.getLastError());
    EXPECT_EQ(Ncdump(file), h);
}

// Every quantity a node holds comes back; several steps get a time axis.
TEST_F(NetCDF, RoundTripsEveryStoredQuantity) {
    struct Case {
        int steps;
        bool threeC, peaks, stats;
    };
    for (const Case c :
         {Case{1, false, false, false}, Case{3, false, true, false}, Case{2, true, true, true}}) {
        ScratchDir dir;
        Field f = MakeField(c.steps, c.threeC, c.peaks);
        f->setFlagStatisticsData(c.stats);
        const std::string file = dir.file("rt.nc");
        ASSERT_TRUE(f->saveNetCDF(file.c_str(), -1));
        if (c.steps == 2) {
            const std::string h = Ncdump(file);
            for (const char* s :
                 {"data_array_time = 2 ;", "vec_dims = 3 ;", "float time(data_array_time) ;",
                  "time:long_name = \"time axis in [seconds]\" ;"})
                EXPECT_PRED_FORMAT2(IsSubstring, s, h);
        }
        PIV_Data2D back(file.c_str());
        ASSERT_FALSE(back.isNull()) << back.getLastError();
        ASSERT_EQ(back.nodeCount(), f->nodeCount());
        EXPECT_EQ(back.is3C(), c.threeC);
        auto stored = [&c](const PIV_VECTOR& v) {
            std::vector<float> s = {v.x, v.y, v.dx, v.dy, v.dz, v.corr, v.snr};
            s.insert(s.end(),
                     {float(v.ix), float(v.iy), float(v.flag), c.stats ? float(v.count) : 0});
            for (const PIV_PEAK& p : v.peak)
                if (c.peaks) s.insert(s.end(), {p.x, p.y, p.value});
            return s;
        };
        for (int t = 0; t < c.steps; t++) {
            EXPECT_FLOAT_EQ(float(back.timeAt(t)), float(f->timeAt(t)));
            for (int k = 0; k < 12; k++)
                EXPECT_EQ(stored(back.dataAtTime(t)[k]), stored(f->dataAtTime(t)[k])) << k;
        }
        // piv_flags present: validation is not asked for again.
        EXPECT_TRUE(back.skipValidation());
    }
}

TEST_F(NetCDF, DifferentialsKeepTheirFormulas) {
    OUTPUT_CFG o = Native();
    o.StoreDifferentials = o.StoreLambda2 = o.StoreDiscriminant = o.StoreVorticity = true;
    const std::string file = dir.file("d.nc");
    // A field without differentials has them computed before it is saved:
    // the switches stay and the file holds the derived values.
    Field plain = MakeField();
    ASSERT_FALSE(plain->isDifferentiated());
    EXPECT_TRUE(plain->save(file.c_str(), 0, o));
    EXPECT_TRUE(plain->isDifferentiated());
    EXPECT_PRED_FORMAT2(IsSubstring, "lambda2", Ncdump(file));

    // A field with them stores them with the formulas the files have always held.
    Field f = MakeField();
    ASSERT_TRUE(f->allocDifferentials());
    for (int k = 0; k < 12; k++) {
        DIFFERENTIALS d;
        d.dudx = 1.0f + k;
        d.dudy = 2.0f;
        d.dvdx = 3.0f;
        d.dvdy = 0.5f * k;
        f->setDifferentials(k, d);
    }
    ASSERT_TRUE(f->save(file.c_str(), 0, o));
    NcId nc(file);
    const std::vector<float> dudx = nc.floats("dudx"), dvdx = nc.floats("dvdx");
    const std::vector<float> l2 = nc.floats("lambda2"), disc = nc.floats("discriminant");
    const std::vector<float> vort = nc.floats("vorticity");
    ASSERT_EQ(dvdx.size(), 12u);
    for (int r = 0; r < 3; r++)
        for (int i = 0; i < 4; i++) {
            const size_t n = size_t(r * 4 + i);
            const DIFFERENTIALS d = f->getDifferentials2D(2 - r, i);
            EXPECT_EQ(dvdx[n], dudx[n]);
            EXPECT_EQ(dudx[n], d.dudx);
            EXPECT_FLOAT_EQ(l2[n], d.dudx * d.dudy + d.dudy * d.dvdx);
            const float p = d.dudx * d.dvdy;
            EXPECT_FLOAT_EQ(disc[n], p * p - 4 * (d.dudx * d.dvdy - d.dudy * d.dvdx));
            EXPECT_FLOAT_EQ(vort[n], d.dvdx - d.dudy);
        }
}

// The region comes back ordered (left 10, right 50) and the image origin
// counted from the bottom row.
TEST_F(NetCDF, ParametersRoundTripAfterTheReadRules) {
    PIV_Parameters p;
    PIV_PARAMETERS r = p.pivParameters();
    r.eval.Method = 2;
    r.eval.SampleSize = {24, 40, 1};
    r.eval.SampleOffset = {1, 3, 0};
    r.eval.Type = 4;
    r.eval.grid.step = {8, 12, 1};
    r.eval.grid.roi = {50, 10, 40, 5, 0, 3};
    r.convert.LengthConversion[0] = 10;
    r.convert.LengthConversion[1] = 5;
    r.convert.ImageOrigin = {3, 0, 0};
    r.eval.grid.imageSize = {512, 1024, 1};
    r.outlier.CheckMedian = true;
    r.outlier.MedianThreshold = 2.5f;
    p.setPivParameters(r);
    const std::string file = dir.file("p.nc");
    ASSERT_TRUE(p.save(file.c_str()));
    EXPECT_PRED_FORMAT2(IsSubstring, ":origin_in_image_row = 1023.f ;", Ncdump(file));
    EXPECT_EQ(PIV::IsParameterFile(file.c_str()), 1);

    PIV_Parameters q;
    ASSERT_TRUE(q.read(file.c_str()));
    const PIV_PARAMETERS b = q.pivParameters();
    const std::vector<double> got = {
        double(b.eval.Method),           double(b.eval.SampleSize.height),
        double(b.eval.SampleOffset.y),   double(b.eval.Type),
        double(b.eval.grid.step.height), double(b.eval.grid.roi.left),
        double(b.eval.grid.roi.right),   double(b.eval.grid.roi.front),
        double(b.convert.ImageOrigin.y), b.convert.LengthConversion[1],
        double(b.outlier.CheckMedian),   b.outlier.MedianThreshold};
    EXPECT_EQ(got, (std::vector<double>{2, 40, 3, 4, 12, 10, 50, 3, 0, 5, 1, 2.5}));
}

TEST_F(NetCDF, MethodFromTheTextPrefersMultigrid) {
    const std::string file = dir.file("m.nc");
    {
        NcId nc(NC_CLOBBER, file);
        const char* t = "multiple-pass and multigrid image-deformation";
        nc_put_att_text(nc.id, NC_GLOBAL, "file_content", 23, "DPIV process parameters");
        nc_put_att_text(nc.id, NC_GLOBAL, "ev_method", std::strlen(t), t);
        nc_put_att_text(nc.id, NC_GLOBAL, "pd_peak_fit", 9, "centroid!");
    }
    PIV_PARAMETERS p;
    ASSERT_EQ(PIV::ReadParameters(file.c_str(), &p), 1);
    EXPECT_EQ(std::vector<int>({p.eval.Method, p.eval.ImageMapping2D.Mode, p.eval.Type}),
              std::vector<int>({2, 1, 3}));
}

TEST_F(NetCDF, ReadsPIVNET2WrittenByTheCAPI) {
    const std::string file = dir.file("pivnet2.nc");
    {
        NcId nc(NC_CLOBBER, file);
        ASSERT_GE(nc.id, 0);
        nc_put_att_text(nc.id, NC_GLOBAL, "Conventions", 7, "PIVNET2");
        const int cols = 100, rows = 80;
        nc_put_att_int(nc.id, NC_GLOBAL, "image_cols", NC_INT, 1, &cols);
        nc_put_att_int(nc.id, NC_GLOBAL, "image_rows", NC_INT, 1, &rows);
        int dims[4], vars[6];
        const char* dimNames[4] = {"data_dim_time", "data_dim_z", "data_dim_y", "data_dim_x"};
        const size_t lengths[4] = {1, 1, 2, 3};
        for (int i = 0; i < 4; i++) nc_def_dim(nc.id, dimNames[i], lengths[i], &dims[i]);
        nc_def_var(nc.id, "grid_x", NC_FLOAT, 1, &dims[3], &vars[0]);
        nc_def_var(nc.id, "grid_y", NC_FLOAT, 1, &dims[2], &vars[1]);
        const char* names[4] = {"vx", "vy", "dx", "flag"};
        for (int i = 0; i < 4; i++) nc_def_var(nc.id, names[i], NC_FLOAT, 4, dims, &vars[2 + i]);
        nc_enddef(nc.id);
        // grid_x, grid_y, vx, vy, dx and flag; a flag that is no number reads as a clear one.
        const float values[6][6] = {
            {10, 30, 50},       {20, 40},
            {1, 2, 3, 4, 5, 6}, {-1, -2, -3, -4, -5, -6},
            {1, 2, 3, 4, 5, 6}, {1, 1, 8, 1, std::numeric_limits<float>::quiet_NaN(), 1}};
        for (int i = 0; i < 6; i++) nc_put_var_float(nc.id, vars[i], values[i]);
    }
    PIV_Data2D d(file.c_str());
    ASSERT_FALSE(d.isNull()) << d.getLastError();
    EXPECT_EQ(d.grid().nodes.width, 3);
    EXPECT_EQ(d.grid().nodes.height, 2);
    const PIV_VECTOR v = d.getVector2D(1, 2);
    EXPECT_EQ(std::vector<float>({float(v.ix), float(v.iy), v.u, v.v}),
              std::vector<float>({50, 40, 6, -6}));
    EXPECT_EQ(d.getVector2D(0, 2).flag, 8);
    EXPECT_EQ(d.getVector2D(1, 1).flag, 0);
    EXPECT_TRUE(d.dataType() & PIV::DATA_VELOCITY);
}

TEST_F(NetCDF, OwnPIVNET2VelocityIsNotReadBack) {
    Field f = MakeField();
    for (int k = 0; k < 12; k++) f->data()[k].u = 3;
    f->setDataType(f->dataType() | PIV::DATA_VELOCITY);
    OUTPUT_CFG o;
    o.OutputFormat = 4;
    const std::string file = dir.file("own.nc");
    ASSERT_TRUE(f->save(file.c_str(), 0, o));
    const std::string h = Ncdump(file);
    EXPECT_PRED_FORMAT2(IsSubstring, ":Conventions = \"PIVNET2\" ;", h);
    EXPECT_PRED_FORMAT2(IsSubstring,
                        "float vel_x(data_dim_time, data_dim_z, data_dim_y, data_dim_x) ;", h);
    PIV_Data2D back(file.c_str());
    ASSERT_FALSE(back.isNull()) << back.getLastError();
    EXPECT_EQ(back.data()[4].dx, f->data()[4].dx);
    EXPECT_EQ(back.data()[4].u, 0);
}

TEST_F(NetCDF, EuropivInfinitiesBecomeOutliers) {
    const std::string file = dir.file("europiv.nc");
    {
        NcId nc(NC_CLOBBER, file);
        const int var = nc.defineNative();
        const double lo[3] = {16, 16, 0}, hi[3] = {32, 32, 0};
        nc_put_att_double(nc.id, var, "coord_min", NC_DOUBLE, 3, lo);
        nc_put_att_double(nc.id, var, "coord_max", NC_DOUBLE, 3, hi);
        nc_enddef(nc.id);
        const float d[8] = {1, 2, std::numeric_limits<float>::infinity(), 4, 5, 6, 7, 8};
        nc_put_var_float(nc.id, var, d);
    }
    PIV_Data2D f(file.c_str());
    ASSERT_FALSE(f.isNull()) << f.getLastError();
    // File row 0 (the bottom) is array row 1.
    EXPECT_EQ(std::vector<float>({float(f.getVector2D(1, 1).flag), f.getVector2D(1, 1).dx,
                                  f.getVector2D(1, 0).dx, f.getVector2D(0, 1).dy}),
              std::vector<float>({VECTOR_OUTLIER, 0, 1, 8}));
    EXPECT_FALSE(f.skipValidation());  // no piv_flags: validation still pending
}

// What a failed fit or a foreign writer leaves in a file: values that are no
// numbers become nodes without result, counted in a warning; 1e30, a number,
// stays. Used as the predictor of a warp, neither 1e30 nor a NaN put back
// into the field may reach a conversion to int (the sanitizers watch): a
// pixel whose source cannot be placed reads as outside the image.
TEST_F(NetCDF, NoNumbersAreDisabledAndAPredictorOfThemWarpsCleanly) {
    Field f = MakeField(1, false, true);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    f->data()[1].dx = nan;
    f->data()[6].peak[2].value = -std::numeric_limits<float>::infinity();
    f->data()[9].dy = 1e30f;
    const std::string file = dir.file("nan.nc");
    ASSERT_TRUE(f->saveNetCDF(file.c_str(), 0));
    MessageCapture log;
    PIV_Data2D back(file.c_str());
    ASSERT_FALSE(back.isNull()) << back.getLastError();
    EXPECT_PRED_FORMAT2(IsSubstring, "2 of 12 vectors hold values that are no numbers", log.all());
    const PIV_VECTOR* v = back.data();
    for (int k : {1, 6}) {
        EXPECT_EQ(std::vector<float>({float(v[k].flag), v[k].dx, v[k].peak[2].value}),
                  std::vector<float>({VECTOR_NO_RESULT | VECTOR_OUTLIER, 0, 0}))
            << k;
    }
    EXPECT_EQ(v[9].dy, 1e30f);
    EXPECT_EQ(v[9].flag, VECTOR_ENABLED);

    Image2D src, mask;
    src.alloc(64, 48, IMAGE_FLOAT);
    for (int y = 0; y < 48; y++)
        for (int x = 0; x < 64; x++) src.setPixel(x, y, float(1 + x + y));
    mask.alloc(64, 48, IMAGE_UINT8);
    mask.fill(0.0f);
    mask.setPixel(0, 0, 255.0f);
    for (PIV::InterpolationMethod method : {PIV::INTERPOLATE_BSPLINE, PIV::INTERPOLATE_BILINEAR})
        for (bool masked : {false, true})
            for (float bad : {1e30f, nan}) {
                SCOPED_TRACE(testing::Message() << method << masked << bad);
                back.data()[5].dx = bad;
                IMAGEDEF_CFG cfg;
                cfg.Method = method;
                cfg.Order = 3;
                Image2D_Deformation warp;
                warp.setImageDefCfg(cfg);
                Image2D dst;
                ASSERT_TRUE(masked ? warp.deformWithMaskedPivData(src, dst, mask, back, 0.5)
                                   : warp.deformWithPivData(src, dst, back, 0.5));
                for (int y = 0; y < 48; y++)
                    for (int x = 0; x < 64; x++) {
                        const float p = dst.pixel(x, y);
                        ASSERT_TRUE(p >= 1.0f && p <= 111.0f) << x << "," << y << ": " << p;
                    }
            }
}

TEST_F(NetCDF, BadInputGivesTheErrors) {
    auto refused = [](const std::string& file, int code) {
        PIV_Data2D d;
        EXPECT_FALSE(d.load(file.c_str())) << file;
        if (code) {
            EXPECT_EQ(d.error().getLastErrorCode(), code) << file;
        }
        return std::string(d.error().getLastError());
    };
    // A parameter file is NetCDF of another kind.
    const std::string par = dir.file("par.nc");
    ASSERT_TRUE(PIV_Parameters().save(par.c_str()));
    refused(par, PIVerror::INVALID_FILE_CONTENT);

    // A truncated data file.
    Field f = MakeField();
    const std::string good = dir.file("good.nc");
    ASSERT_TRUE(f->saveNetCDF(good.c_str(), 0));
    const std::string bytes = ReadBytes(good);
    test_support::WriteBytes(dir.file("cut.nc"), bytes.substr(0, bytes.size() / 3));
    refused(dir.file("cut.nc"), 0);

    // Too few values: vector_count on a smaller grid than piv_data.
    const std::string few = dir.file("few.nc");
    {
        NcId nc(NC_CLOBBER, few);
        nc.defineNative();
        int small, cnt;
        nc_def_dim(nc.id, "short_axis", 1, &small);
        nc_def_var(nc.id, "vector_count", NC_INT, 1, &small, &cnt);
    }
    refused(few, PIVerror::NETCDF_READ_VAR);

    // A damaged origin attribute: the first node at 2^31 - 1 and the rest a
    // step beyond would overflow every position; the file is refused before
    // any node is placed.
    const std::string far = dir.file("far.nc");
    test_support::WriteBytes(far, bytes);
    {
        NcId nc(far, NC_WRITE);
        ASSERT_GE(nc.id, 0);
        nc_redef(nc.id);
        const float origin[2] = {2147483647.0f, 8.0f};
        ASSERT_EQ(
            nc_put_att_float(nc.id, NC_GLOBAL, "ev_origin_of_evaluation", NC_FLOAT, 2, origin),
            NC_NOERR);
    }
    EXPECT_PRED_FORMAT2(IsSubstring, "beyond 1073741824 pixels",
                        refused(far, PIVerror::INVALID_FILE_CONTENT));

    // A field without displacement data is not saved.
    MessageCapture quiet;
    f->setDataType(PIV::DATA_FLAGS);
    EXPECT_FALSE(f->saveNetCDF(dir.file("flags.nc").c_str(), 0));
    EXPECT_FALSE(std::ifstream(dir.file("flags.nc")).good());
}

// A save writes one temporary beside its target, parameters included: a
// name that leaves room for one temporary's suffix (".tmp-XXXXXX") and no
// more is saved, and the parameters join the vectors. A failed save leaves
// the earlier file and nothing else.
TEST_F(NetCDF, OneTemporaryBesideTheTarget) {
    Field f = MakeField();
    const std::string file = dir.file(std::string(255 - 11 - 3, 'n') + ".nc");
    ASSERT_TRUE(f->saveNetCDF(file.c_str(), 0)) << f->getLastError();
    PIV_Parameters p;
    ASSERT_TRUE(p.save(file.c_str()));
    PIV_PARAMETERS r;
    r.outlier.MinSNR = 7.5f;
    ASSERT_EQ(PIV::SaveParameters(file.c_str(), &r), 1);
    EXPECT_EQ(Entries(dir), 1);
    PIV_Data2D back(file.c_str());
    ASSERT_FALSE(back.isNull());
    EXPECT_EQ(back.data()[5].dx, f->data()[5].dx);
    EXPECT_FLOAT_EQ(back.pivParameters().outlier.MinSNR, 7.5f);
    const std::string before = ReadBytes(file);
    if (::geteuid() != 0) {  // an unwritable folder
        ::chmod(dir.path().c_str(), 0500);
        EXPECT_FALSE(f->saveNetCDF(file.c_str(), 0));
        EXPECT_FALSE(PIV::SaveParameters(file.c_str(), &f->pivParameters()));
        ::chmod(dir.path().c_str(), 0700);
        EXPECT_EQ(ReadBytes(file), before);
        EXPECT_EQ(Entries(dir), 1);
    }
}

TEST_F(NetCDF, FileInformation) {
    Field f = MakeField(1, false, true);
    const std::string file = dir.file("info.nc");
    ASSERT_TRUE(f->saveNetCDF(file.c_str(), 0));
    PIV::FILE_INFO info;
    ASSERT_TRUE(PIV::GetFileInformation(file.c_str(), info));
    EXPECT_EQ(std::vector<int>({info.format, info.nx, info.ny, info.peakComponents}),
              std::vector<int>({3, 4, 3, 3}));
    EXPECT_TRUE(info.content & 0x100);
    EXPECT_FALSE(PIV::GetFileInformation(dir.file("missing").c_str(), info));
    EXPECT_EQ(info.errorCode, 28);
}
