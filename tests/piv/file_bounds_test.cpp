// Parameter and NetCDF data files whose contents claim more than the file
// holds: the line count of a parameter file and the grid a data file's
// dimensions declare are bounded before anything is allocated for them.
#include <gtest/gtest.h>
#include <netcdf.h>

#include <string>

#include "asciiparfile.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "scratch_files.h"

using test_support::ReadBytes;
using test_support::ScratchDir;
using test_support::WriteBytes;

// Each line of a parameter file costs an entry of some 4 KB, however short:
// a 40 KB file of "#\n" lines would take 80 MB. The first 16384 lines are
// the most any parameter file has.
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
    EXPECT_NE(std::string(file.error().getLastError()).find("holds more than 16384 lines"),
              std::string::npos)
        << file.error().getLastError();

    // One line fewer and the file reads: the setting and 16383 comments.
    WriteBytes(path, text.substr(0, text.size() - 2));
    ASCIIParFile shorter(path.c_str(), ASCIIParFile::READ);
    EXPECT_EQ(shorter.entryCount(), ASCIIParFile::MaxEntries);
    int method = 0;
    EXPECT_TRUE(shorter.serialize("PIV_Eval_Method", &method));
    EXPECT_EQ(method, 1);
}

// A classic NetCDF file keeps a dimension's length as a 32-bit big-endian
// number behind its name, padded to four bytes. A 2 x 2 field whose
// dimensions are then set to 20000 x 20000 declares 4 x 10^8 nodes, at
// least one float each: 1.6 GB in a file of a few hundred bytes.
TEST(NetCdfBounds, DimensionsBeyondTheFileAreRefused) {
    ScratchDir dir;
    MessageCapture messages;
    const std::string path = dir.file("field.nc");
    int nc = -1, z, y, x, c, var;
    ASSERT_EQ(nc_create(path.c_str(), NC_CLOBBER, &nc), NC_NOERR);
    nc_put_att_text(nc, NC_GLOBAL, "file_content", 12, "Kelvane Data");
    nc_def_dim(nc, "data_array_depth", 1, &z);
    nc_def_dim(nc, "data_array_height", 2, &y);
    nc_def_dim(nc, "data_array_width", 2, &x);
    nc_def_dim(nc, "vec_dims", 2, &c);
    const int dims[4] = {z, y, x, c};
    nc_def_var(nc, "piv_data", NC_FLOAT, 4, dims, &var);
    nc_enddef(nc);
    const float d[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    nc_put_var_float(nc, var, d);
    ASSERT_EQ(nc_close(nc), NC_NOERR);
    {
        PIV_Data2D good(path.c_str());
        ASSERT_FALSE(good.isNull()) << good.getLastError();
    }

    std::string bytes = ReadBytes(path);
    for (const std::string name : {"data_array_height", "data_array_width"}) {
        const size_t at = bytes.find(name);
        ASSERT_NE(at, std::string::npos);
        const size_t length = at + (name.size() + 3) / 4 * 4;
        ASSERT_EQ(bytes.substr(length, 4), std::string("\0\0\0\x02", 4));
        bytes.replace(length, 4, std::string("\0\0\x4e\x20", 4));  // 20000
    }
    WriteBytes(path, bytes);
    PIV_Data2D inflated;
    EXPECT_FALSE(inflated.load(path.c_str()));
    EXPECT_EQ(inflated.error().getLastErrorCode(), PIVerror::FILE_READ_FAILED);
    EXPECT_NE(std::string(inflated.getLastError()).find("declares 1600000000 bytes of vector data"),
              std::string::npos)
        << inflated.getLastError();
    EXPECT_TRUE(inflated.isNull());
}
