// Helpers shared by the image tests: small images from literal pixel lists,
// scratch folders, files of literal bytes and a catcher of messages.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "image2d.h"
#include "message_capture.h"
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

// "w x h type t": an image's geometry, to compare in one line.
inline std::string Shape(uint64_t w, uint64_t h, int type) {
    return std::to_string(w) + "x" + std::to_string(h) + " type " + std::to_string(type);
}
inline std::string Shape(const Image2D& img) {
    return Shape(img.width(), img.height(), img.type());
}

// The code a failed operation left on its object (an image or anything else
// with an error()), or -1 when it succeeded.
template <typename T>
int FailCode(T& obj, bool ok) {
    return ok ? -1 : obj.error().getLastErrorCode();
}

// A w x h image of zeros but for `value` at row-major index `at`.
inline Image2D Spike(int w, int h, ImageType type, int at, float value) {
    std::vector<float> v(static_cast<size_t>(w) * h, 0.0f);
    v[static_cast<size_t>(at)] = value;
    return MakeImage(w, h, type, v);
}

inline Image2D Filled(int w, int h, ImageType type, float value) {
    Image2D img(w, h, type);
    img.fill(value);
    return img;
}

// Files and folders in a folder, to see that nothing is left behind.
inline int CountEntries(const std::string& path) {
    auto it = std::filesystem::directory_iterator(path);
    return static_cast<int>(std::distance(begin(it), end(it)));
}

inline std::string Bytes(std::initializer_list<int> bytes) {
    std::string s;
    for (int b : bytes) s.push_back(static_cast<char>(b));
    return s;
}

// An operation on a small image: its pixels before and after, row-major in
// rows of w (0: one row).
struct OpCase {
    const char* what;
    ImageType type;
    std::vector<float> before;
    std::function<bool(Image2D&)> op;
    std::vector<float> after;
    int w = 0;
};

inline void RunOpCases(const std::vector<OpCase>& cases) {
    for (const OpCase& c : cases) {
        SCOPED_TRACE(c.what);
        const int w = c.w ? c.w : static_cast<int>(c.before.size());
        Image2D img = MakeImage(w, static_cast<int>(c.before.size()) / w, c.type, c.before);
        ASSERT_TRUE(c.op(img)) << LastText(img);
        EXPECT_EQ(Pixels(img), c.after);
    }
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

// Fixture: a scratch folder of the test's own and a catcher of its messages.
class ScratchFiles : public testing::Test {
protected:
    ScratchDir dir;
    Messages messages;
};

}  // namespace image_test
