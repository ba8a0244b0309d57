// Scratch directories under the build tree and whole-file byte helpers, for
// every test module that writes files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace test_support {

// A fresh directory under the build tree, removed with its contents.
class ScratchDir {
public:
    ScratchDir() {
        std::string pattern = std::string(KELVANE_BINARY_DIR) + "/scratch_XXXXXX";
        char* made = ::mkdtemp(&pattern[0]);
        EXPECT_NE(made, nullptr);
        m_path = pattern;
    }
    ~ScratchDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

inline void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace test_support
