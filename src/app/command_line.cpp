#include "command_line.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "piv_messages.h"
#include "piv_util.h"

namespace {

const CommandLine* g_commandLine = nullptr;

std::string lowerCase(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

bool startsWith(const std::string& s, const char* prefix) {
    return s.compare(0, std::strlen(prefix), prefix) == 0;
}

}  // namespace

const CommandLine* ApplicationCommandLine() {
    return g_commandLine;
}
void SetApplicationCommandLine(const CommandLine* commandLine) {
    g_commandLine = commandLine;
}

void CommandLine::init() {
    m_help = false;
    m_info = false;
    m_debug = false;
    m_debugLevel = 0;
    m_files.clear();
    m_options.clear();
    m_optionsOriginal.clear();
    m_command.clear();
}

void CommandLine::scan(int argc, const char* const* argv) {
    m_files.clear();
    m_options.clear();
    m_optionsOriginal.clear();
    m_command.clear();
    if (argc < 1 || !argv) {
        SetDebugLevel(m_debugLevel);
        if (m_debugLevel >= 1) m_debug = true;
        return;
    }

    if (argv[0]) {
        PIV::SoftwareName(argv[0]);
        m_command = argv[0];
    }
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i] ? argv[i] : "";
        m_command += ' ';
        m_command += arg;

        const std::string lower = lowerCase(arg);
        if (lower.empty()) continue;
        if (lower == "-help" || lower == "-?") {
            m_help = true;
        } else if (lower == "-info") {
            m_info = true;
        } else if (startsWith(lower, "-debug") || startsWith(lower, "-dbg")) {
            const std::size_t skip = startsWith(lower, "-debug") ? 6 : 4;
            m_debugLevel = std::atoi(lower.c_str() + skip);
            m_debug = m_debugLevel >= 1;
        } else if (lower[0] == '-') {
            m_options.push_back(lower.substr(1));
            m_optionsOriginal.push_back(arg.substr(1));
        } else {
            std::string file = arg;
            file.erase(std::remove(file.begin(), file.end(), '"'), file.end());
            std::replace(file.begin(), file.end(), '\\', '/');
            m_files.push_back(file);
        }
    }
}

bool CommandLine::hasOption(const std::string& lowerCaseName) const {
    return std::find(m_options.begin(), m_options.end(), lowerCaseName) != m_options.end();
}

int CommandLine::earlyDebugLevel(int argc, const char* const* argv) {
    int level = 0;
    for (int i = 1; i < argc && argv; ++i) {
        if (!argv[i] || std::strncmp(argv[i], "-dbg", 4) != 0) continue;
        level = std::max(1, std::atoi(argv[i] + 4));
    }
    return level;
}

const char* CommandLine::helpText() {
    return "Kelvane command line options:\n"
           "\t-auto\tswitch to autocorrelation mode\n"
           "\t-cross\tswitch to standard cross-correlation mode (default)\n"
           "\t-speckle\tswitch to speckle-shift mode\n"
           "\t-bos\tswitch to speckle-shift mode\n"
           "\t-help\tshows this help message\n"
           "\n"
           "The last argument specifies the file to load which may be\n"
           "an image, a PIV-data set or parameter file.";
}
