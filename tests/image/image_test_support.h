// Helpers shared by the image tests: small images from literal pixel lists,
// scratch directories, files of literal bytes and a catcher for the
// library's messages.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "image2d.h"
#include "message_capture.h"
#include "piv_messages.h"
#include "scratch_files.h"

namespace image_test {

// Row-major pixel values into an image of the given type; fails the test if
// the image cannot be made.
inline Image2D MakeImage(int w, int h, ImageType type, const std::vector<float>& values) {
    Image2D img;
    EXPECT_TRUE(img.alloc(w, h, type));
    EXPECT_EQ(values.size(), static_cast<size_t>(w) * h);
    for (int y = 0; y < h; y++)
        for (int x = 0; x < w; x++) img.setPixel(x, y, values[static_cast<size_t>(y) * w + x]);
    return img;
}

inline std::vector<float> Pixels(const Image2D& img) {
    std::vector<float> v;
    for (uint64_t y = 0; y < img.height(); y++)
        for (uint64_t x = 0; x < img.width(); x++)
            v.push_back(img.pixel(static_cast<int>(x), static_cast<int>(y)));
    return v;
}

inline int LastCode(const Image2D& img) {
    return img.error().getLastErrorCode();
}
inline std::string LastText(const Image2D& img) {
    return img.error().getLastError();
}

using test_support::ReadBytes;
using test_support::ScratchDir;
using test_support::WriteBytes;

inline std::string DataFile(const std::string& name) {
    return std::string(KELVANE_TEST_DATA_DIR) + "/image/" + name;
}

// Collects what reaches the message sink while in scope, so expected errors
// neither clutter the output nor go unchecked.
using Messages = ::MessageCapture;
using ::DebugLevelScope;

}  // namespace image_test
