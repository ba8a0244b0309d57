// Collects what the library's message sink receives while in scope, so that
// expected errors neither clutter the test output nor go unchecked.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "piv_messages.h"

class MessageCapture {
public:
    MessageCapture() : m_previous(MessageHook()) {
        lines().clear();
        SetMessageHook(&MessageCapture::collect);
    }
    ~MessageCapture() { SetMessageHook(m_previous); }

    static std::vector<std::string>& lines() {
        static std::vector<std::string> collected;
        return collected;
    }
    std::string all() const {
        std::string s;
        for (const std::string& l : lines()) s += l + "\n";
        return s;
    }

private:
    static void collect(const char* text) { lines().emplace_back(text); }
    PIVMessageHook m_previous;
};

// Sets the debug level for a scope, quietly restoring the old one.
class DebugLevelScope {
public:
    explicit DebugLevelScope(int level) : m_old(DebugLevel()) { set(level); }
    ~DebugLevelScope() { set(m_old); }

private:
    static void set(int level) {
        PIVMessageHook hook = MessageHook();
        SetMessageHook([](const char*) {});
        SetDebugLevel(level);
        SetMessageHook(hook);
    }
    int m_old;
};

// Whether `text` holds `part`; a failure shows the whole text.
inline ::testing::AssertionResult HasText(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "\"" << part << "\" is not in:\n" << text;
}
