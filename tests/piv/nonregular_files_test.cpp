// Parameter and data file names that point at no file: a folder, a named
// pipe nobody writes to, an endless device. Each is refused at once; a pipe
// without a writer would otherwise stop the program for good.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "asciiparfile.h"
#include "message_capture.h"
#include "piv_data2d.h"
#include "piv_filename.h"
#include "piv_params_io.h"
#include "scratch_files.h"

using test_support::ScratchDir;
using test_support::SpecialFiles;

TEST(SpecialFiles, NeitherParametersNorFieldsAreReadFromThem) {
    ScratchDir dir;
    MessageCapture messages;
    const std::vector<std::string> paths = SpecialFiles(dir, ".nc");
    ASSERT_GE(paths.size(), 2u);
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        const char* p = path.c_str();
        EXPECT_FALSE(PIV::CheckFileExistence(p));
        EXPECT_EQ(PIV::IsParameterFile(p), 0);

        ASCIIParFile par(p, ASCIIParFile::READ);
        EXPECT_TRUE(par.isEmpty());
        EXPECT_EQ(par.entryCount(), 0);

        PIV_Data2D field;
        EXPECT_FALSE(field.load(p));
        EXPECT_TRUE(field.isNull());
        EXPECT_EQ(field.error().getLastErrorCode(), PIVerror::FILE_READ_FAILED);
        EXPECT_TRUE(HasText(field.getLastError(), "'" + path + "' is not a regular file"));
    }
}
