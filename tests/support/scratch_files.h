// Scratch directories under the build tree and whole-file byte helpers, for
// every test module that writes files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

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

// Names of things that are no files, with `extension` so that a reader
// choosing by name takes them: a folder, a named pipe nobody writes to and,
// where there is one, the endless /dev/zero.
inline std::vector<std::string> SpecialFiles(const ScratchDir& dir, const std::string& extension) {
    std::vector<std::string> paths;
    const std::string folder = dir.file("folder" + extension);
    std::filesystem::create_directory(folder);
    paths.push_back(folder);
    const std::string pipe = dir.file("pipe" + extension);
    if (::mkfifo(pipe.c_str(), 0600) == 0) paths.push_back(pipe);
    if (std::filesystem::exists("/dev/zero")) paths.emplace_back("/dev/zero");
    return paths;
}

// A file-size limit stands in for a full disk: each writer's output is
// smaller than a stdio buffer, so the first write to fail is the last flush.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &m_old);
        const rlimit limit{bytes, m_old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_old);
        std::signal(SIGXFSZ, m_handler);
    }

private:
    void (*m_handler)(int);
    rlimit m_old;
};

}  // namespace test_support
