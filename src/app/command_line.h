// The command line of the program, scanned once at start. Plain C++, so the
// scanner is tested without a display.
#pragma once

#include <string>
#include <vector>

class CommandLine {
public:
    CommandLine() { init(); }

    void init();
    void scan(int argc, const char* const* argv);

    bool help() const { return m_help; }
    bool info() const { return m_info; }
    bool debug() const { return m_debug; }
    int debugLevel() const { return m_debugLevel; }
    void setDebugLevel(int level) { m_debugLevel = level; }

    // File arguments: quotes removed, backslashes turned into slashes.
    const std::vector<std::string>& files() const { return m_files; }
    // Options without the leading minus, lower case and as typed.
    const std::vector<std::string>& options() const { return m_options; }
    const std::vector<std::string>& optionsOriginal() const { return m_optionsOriginal; }
    bool hasOption(const std::string& lowerCaseName) const;
    // The whole command, arguments separated by blanks.
    const std::string& command() const { return m_command; }

    // The debug level of the first look at the arguments, before the
    // scanner: the last argument that begins with "-dbg" (compared as
    // typed) gives the number behind it, at least 1; 0 without one.
    static int earlyDebugLevel(int argc, const char* const* argv);

    static const char* helpText();

private:
    bool m_help;
    bool m_info;
    bool m_debug;
    int m_debugLevel;
    std::vector<std::string> m_files;
    std::vector<std::string> m_options;
    std::vector<std::string> m_optionsOriginal;
    std::string m_command;
};

// The command line of this process, for the windows that read it.
const CommandLine* ApplicationCommandLine();
void SetApplicationCommandLine(const CommandLine* commandLine);
