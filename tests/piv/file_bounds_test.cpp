// Parameter and NetCDF data files whose contents claim more than the file
// holds: the line count of a parameter file and the grid a data file's
// dimensions declare are bounded before anything is allocated for them.
#include <gtest/gtest.h>
#include <netcdf.h>

#include <limits>
#include <string>

#include "asciiparfile.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_params.h"
#include "scratch_files.h"

using test_support::ReadBytes;
using test_support::ScratchDir;
using test_support::WriteBytes;

// Each line of a parameter file costs an entry of some 4 KB, however short:
// 10 KB of "#\n" lines would take 20 MB, a megabyte of them 2 GB. 4096
// lines are twice what a file of four views with comments has.
TEST(ParFileBounds, MoreLinesThanAnyParameterFileAreRefused) {
    ScratchDir dir;
    MessageCapture messages;
    const std::string path = dir.file("long.par");
    std::string text = "PIV_Eval_Method = 1\n";
    for (int i = 0; i < ASCIIParFile::MaxEntries; i++) text += "#\n";
    WriteBytes(path, text);
    ASCIIParFile file(path.c_str(), ASCIIParFile::READ);
    EXPECT_TRUE(file.isEmpty());
    EXPECT_EQ(file.error().getLastErrorCode(), PIVerror::FILE_READ_FAILED);
    EXPECT_TRUE(HasText(file.error().getLastError(), "holds more than 4096 lines"));

    // One line fewer and the file reads: the setting and 4095 comments.
    WriteBytes(path, text.substr(0, text.size() - 2));
    ASCIIParFile shorter(path.c_str(), ASCIIParFile::READ);
    EXPECT_EQ(shorter.entryCount(), ASCIIParFile::MaxEntries);
    int method = 0;
    EXPECT_TRUE(shorter.serialize("PIV_Eval_Method", &method));
    EXPECT_EQ(method, 1);
}

namespace {

// A 2 x 2 field of `piv_data` on the dimensions named in `on`, written by
// the netCDF C library in the format of `mode`.
void WriteField(const std::string& path, const char* heightName, const char* widthName,
                int mode = NC_CLOBBER) {
    int nc = -1, z, y, x, c, var;
    ASSERT_EQ(nc_create(path.c_str(), mode, &nc), NC_NOERR);
    nc_put_att_text(nc, NC_GLOBAL, "file_content", 12, "Kelvane Data");
    nc_def_dim(nc, "data_array_depth", 1, &z);
    nc_def_dim(nc, "data_array_height", 2, &y);
    nc_def_dim(nc, "data_array_width", 2, &x);
    nc_def_dim(nc, "vec_dims", 2, &c);
    int ys = y, xs = x;
    if (std::string(heightName) != "data_array_height") nc_def_dim(nc, heightName, 2, &ys);
    if (std::string(widthName) != "data_array_width") nc_def_dim(nc, widthName, 2, &xs);
    const int dims[4] = {z, ys, xs, c};
    nc_def_var(nc, "piv_data", NC_FLOAT, 4, dims, &var);
    nc_enddef(nc);
    const float d[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    nc_put_var_float(nc, var, d);
    ASSERT_EQ(nc_close(nc), NC_NOERR);
}

// A classic NetCDF file keeps a dimension's length as a 32-bit big-endian
// number behind its name, padded to four bytes.
void SetDimension(std::string& bytes, const std::string& name, uint32_t length) {
    const size_t at = bytes.find(name);
    ASSERT_NE(at, std::string::npos);
    const size_t field = at + (name.size() + 3) / 4 * 4;
    for (int i = 0; i < 4; i++) bytes[field + i] = static_cast<char>(length >> (24 - 8 * i));
}

}  // namespace

// Damaged fields whose claims go beyond the file: each is refused with its
// reason before the netCDF libraries see it.
TEST(NetCdfBounds, ClaimsBeyondTheFileAreRefused) {
    ScratchDir dir;
    MessageCapture messages;
    const std::string path = dir.file("field.nc");
    void (*const inflate)(std::string&) = [](std::string& b) {
        SetDimension(b, "data_array_height", 20000);
        SetDimension(b, "data_array_width", 20000);
    };
    const struct {
        const char* why;
        bool fieldOnOtherDimensions;
        void (*spoil)(std::string& bytes);
        std::string text;
    } cases[] = {
        // 20000 x 20000 vectors of two floats, 3.2 GB, in a few hundred bytes.
        {"variables beyond the file", false, inflate,
         "declares 3200000000 bytes of variable data but holds "},
        // Dimensions no variable uses cost nothing in the file, but the grid
        // is laid from them: one float per node at least must be there.
        {"grid beyond the file", true, inflate, "declares 1600000000 bytes of vector data"},
        // A name longer than the netCDF interfaces' buffers, as a damaged
        // length field makes it: the length before "vec_dims", 8, becomes 2166.
        {"overlong name", false,
         [](std::string& b) {
             const size_t at = b.find("vec_dims");
             b[at - 2] = static_cast<char>(2166 >> 8);
             b[at - 1] = static_cast<char>(2166 & 0xff);
         },
         "a dimension name of 2166 characters"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        WriteField(path, c.fieldOnOtherDimensions ? "other_height" : "data_array_height",
                   c.fieldOnOtherDimensions ? "other_width" : "data_array_width");
        std::string bytes = ReadBytes(path);
        c.spoil(bytes);
        WriteBytes(path, bytes);
        PIV_Data2D damaged;
        EXPECT_FALSE(damaged.load(path.c_str()));
        EXPECT_TRUE(damaged.isNull());
        EXPECT_EQ(damaged.error().getLastErrorCode(), PIVerror::FILE_READ_FAILED);
        EXPECT_TRUE(HasText(damaged.getLastError(), c.text));
    }
    PIV_Parameters params;  // nor as a parameter set, the overlong name last written
    EXPECT_FALSE(params.read(path.c_str(), 0));
}

// netCDF-4 files are HDF5 files, at the start or behind a user block of 512
// bytes or a power of two above. The libraries lose memory on a damaged one
// (a flipped bit in its metadata does it), so none reaches them: a sound one
// is refused too, with the way out.
TEST(NetCdfBounds, NetCdf4FilesAreRefusedWithTheWayOut) {
    ScratchDir dir;
    MessageCapture messages;
    const std::string path = dir.file("field4.nc");
    WriteField(path, "data_array_height", "data_array_width", NC_CLOBBER | NC_NETCDF4);
    const std::string sound = ReadBytes(path);
    ASSERT_EQ(sound.substr(1, 3), "HDF");
    std::string damaged = sound;
    damaged[100] ^= 0x10;  // in the root group's object header
    for (const std::string& bytes : {sound, damaged, std::string(1024, '\0') + sound}) {
        WriteBytes(path, bytes);
        PIV_Data2D field;
        EXPECT_FALSE(field.load(path.c_str()));
        EXPECT_EQ(field.error().getLastErrorCode(), PIVerror::FILE_READ_FAILED);
        EXPECT_TRUE(HasText(field.getLastError(),
                            "is a netCDF-4 (HDF5) file; only classic NetCDF files are read "
                            "(convert it with 'nccopy -k classic')"));
    }
}

// The header check reads a file's first 64 KB and more only while the header
// runs on. Forty 2 KB comments make a header of over 80 KB: the field still
// loads whole, and the same file cut at 70 KB, inside its header, is refused.
TEST(NetCdfBounds, HeadersBeyondTheFirstReadAreReadOn) {
    ScratchDir dir;
    MessageCapture messages;
    const std::string path = dir.file("long_header.nc");
    WriteField(path, "data_array_height", "data_array_width");
    int nc = -1;
    ASSERT_EQ(nc_open(path.c_str(), NC_WRITE, &nc), NC_NOERR);
    nc_redef(nc);
    const std::string comment(2048, 'c');
    for (int i = 0; i < 40; i++) {
        const std::string name = "comment_" + std::to_string(i);
        nc_put_att_text(nc, NC_GLOBAL, name.c_str(), comment.size(), comment.c_str());
    }
    ASSERT_EQ(nc_close(nc), NC_NOERR);
    const std::string bytes = ReadBytes(path);
    ASSERT_GT(bytes.find("comment_39"), size_t(64) << 10);

    PIV_Data2D whole;
    ASSERT_TRUE(whole.load(path.c_str())) << whole.getLastError();
    EXPECT_EQ(whole.nodeCount(), 4);
    float dx = 0, dy = 0;  // the field's four vectors are (1, 2) ... (7, 8)
    for (int k = 0; k < 4; k++) dx += whole.data()[k].dx, dy += whole.data()[k].dy;
    EXPECT_EQ(dx, 16.0f);
    EXPECT_EQ(dy, 20.0f);

    WriteBytes(path, bytes.substr(0, size_t(70) << 10));
    PIV_Data2D cut;
    EXPECT_FALSE(cut.load(path.c_str()));
    EXPECT_EQ(cut.error().getLastErrorCode(), PIVerror::FILE_READ_FAILED);
    EXPECT_TRUE(HasText(cut.getLastError(), "beyond the header in its header"));
}

// Found by fuzzing, on the seed itself: a PIVNET2 file of two time steps read
// its z grid at the index of the whole series, past the end of the grid
// (the sanitizer build reports it). Every step lies on the same grid.
TEST(NetCdfBounds, Pivnet2StepsShareOneGrid) {
    ScratchDir dir;
    MessageCapture messages;
    DATA_GRID4D g;
    g.nodes = {4, 3, 1};
    g.timeSteps = 2;
    g.step = {16, 16, 1};
    g.imageSize = {64, 48, 1};
    g.first = {8, 8, 0};
    PIV_Data2D field(g);
    for (int k = 0; k < field.nodeCount(); k++) {
        field.data()[k].dx = 0.5f + k;
        field.data()[k].flag = VECTOR_ENABLED;
    }
    field.setFlagRawData(true);
    field.setDataType(PIV::DATA_DISPLACEMENT | PIV::DATA_FLAGS);
    const std::string path = dir.file("steps.nc");
    OUTPUT_CFG out;
    out.OutputFormat = 4;
    ASSERT_TRUE(field.save(path.c_str(), -1, out)) << field.getLastError();
    PIV_Data2D back(path.c_str());
    ASSERT_FALSE(back.isNull()) << back.getLastError();
    ASSERT_EQ(back.nodeCount(), 24);
    // Node 13 is node 1 of the second step: x = 8 + 16, z = 0.
    EXPECT_EQ(back.data()[13].ix, back.data()[1].ix);
    EXPECT_EQ(back.data()[13].iz, 0);
}

// Found by fuzzing: coordinates of 1e20 in a EUROPIV file made the image
// size an int conversion out of range (undefined; the sanitizer build
// reports it). Such a file is refused with its reason: no node position or
// image size beyond 2^30 pixels comes from an honest field.
TEST(NetCdfBounds, HugeCoordinatesAreRefused) {
    ScratchDir dir;
    MessageCapture messages;
    const std::string path = dir.file("far.nc");
    WriteField(path, "data_array_height", "data_array_width");
    int nc = -1, var = -1;
    ASSERT_EQ(nc_open(path.c_str(), NC_WRITE, &nc), NC_NOERR);
    nc_redef(nc);
    nc_inq_varid(nc, "piv_data", &var);
    const double lo[3] = {16, 16, 0}, hi[3] = {1e20, 1e20, 0};
    nc_put_att_double(nc, var, "coord_min", NC_DOUBLE, 3, lo);
    nc_put_att_double(nc, var, "coord_max", NC_DOUBLE, 3, hi);
    const double cols = 1e30;
    nc_put_att_double(nc, NC_GLOBAL, "image_cols", NC_DOUBLE, 1, &cols);
    nc_put_att_double(nc, NC_GLOBAL, "image_rows", NC_DOUBLE, 1, &cols);
    ASSERT_EQ(nc_close(nc), NC_NOERR);
    PIV_Data2D far;
    EXPECT_FALSE(far.load(path.c_str()));
    EXPECT_TRUE(far.isNull());
    EXPECT_EQ(far.error().getLastErrorCode(), PIVerror::INVALID_FILE_CONTENT);
    EXPECT_TRUE(HasText(far.getLastError(), "beyond 1073741824 pixels"));
}
