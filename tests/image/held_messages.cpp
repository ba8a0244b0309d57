// The library's messages during each test are held back and shown only when
// the test fails, so that expected errors do not clutter the output.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "message_capture.h"

namespace {

class HeldMessages : public ::testing::EmptyTestEventListener {
    void OnTestStart(const ::testing::TestInfo&) override {
        m_capture = std::make_unique<MessageCapture>();
    }
    void OnTestEnd(const ::testing::TestInfo& info) override {
        if (info.result()->Failed())
            for (const std::string& line : MessageCapture::lines())
                std::fprintf(stderr, "%s\n", line.c_str());
        m_capture.reset();
    }
    std::unique_ptr<MessageCapture> m_capture;
};

[[maybe_unused]] const bool kHeld = [] {
    ::testing::UnitTest::GetInstance()->listeners().Append(new HeldMessages);
    return true;
}();

}  // namespace
