// MaskEdit: the program's command line.
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cstdio>

#include "maskedit.h"

namespace {

const char* const kUsage =
    "MaskEdit usage:\n\tMaskEdit <ImageFile>\n\nCommand line options:\n"
    "\t-pco\ttreat as PCO image pair (use 1st image of pair)\n"
    "\t-pco2\ttreat as PCO image pair (use 2nd image of pair)\n"
    "\t-i\tgenerate inverted mask\n"
    "\t-m <fn>\tload mask objects from file <fn>\n"
    "\t-o <fn>\tsave mask in file <fn>\n"
    "\t-q\tgenerate mask and quit (requires -m and -o)\n"
    "\t-help\tshows this help message\n\n"
    "The last argument <ImageFile> specifies the image to load.";

void _print(const QString& text) {
    std::fprintf(stdout, "%s\n", text.toLocal8Bit().constData());
    std::fflush(stdout);
}

// A name to write to: not empty, not an option, in a folder that exists.
bool _isOutputName(const QString& name) {
    if (name.isEmpty() || name.startsWith('-')) return false;
    const QFileInfo info(name);
    return !info.isDir() && info.absoluteDir().exists();
}

}  // namespace

bool MaskEdit::processCommandLine() {
    return processCommandLine(QCoreApplication::arguments().mid(1));
}

bool MaskEdit::processCommandLine(const QStringList& arguments) {
    QString objects, output, image;
    bool quit = false, haveObjects = false, haveOutput = false;
    int split = 0;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& a = arguments[i];
        const QString next = i + 1 < arguments.size() ? arguments[i + 1] : QString();
        if (a == "-help" || a == "-?") {
            _print(kUsage);
            m_quit = true;
            return true;
        } else if (a == "-pco" || a == "-pco1") {
            split = 1;
        } else if (a == "-pco2") {
            split = 2;
        } else if (a == "-i") {
            m_inverted = true;
        } else if (a == "-q") {
            quit = true;
        } else if (a == "-child") {
            // Started by the application: closing hides, saved masks are announced.
            m_standalone = false;
        } else if (a == "-view") {
            bool ok = false;
            const int view = next.toInt(&ok);
            if (ok) {
                setCameraView(view);
                ++i;
            }
        } else if (a == "-m") {
            haveObjects = true;
            if (next.isEmpty() || next.startsWith('-') || !QFileInfo(next).isFile()) {
                _print(QStringLiteral(" bad mask objects file name: '") + next + "'");
                m_quit = true;
                return false;
            }
            objects = next;
            ++i;
        } else if (a == "-o") {
            haveOutput = true;
            if (!_isOutputName(next)) {
                _print(QStringLiteral(" bad output file name: '") + next + "'");
                m_quit = true;
                return false;
            }
            output = next;
            ++i;
        } else if (a.startsWith('-')) {
            _print(kUsage);
            m_quit = true;
            return false;
        } else {
            image = a;
        }
    }
    if (quit && (!haveObjects || !haveOutput)) {
        _print(
            QStringLiteral("-q option requires the specification of both:\n"
                           " -> an output file using -o\n"
                           " -> a mask objects file using -m"));
        m_quit = true;
        return false;
    }
    m_pcoMode = split != 0;
    if (!image.isEmpty() && !loadImage(image, split)) {
        m_quit = quit;
        return false;
    }
    if (!objects.isEmpty() && !loadMaskObjects(objects)) {
        m_quit = quit;
        return false;
    }
    if (!output.isEmpty()) m_maskFile = output;
    if (!quit) return true;
    m_quit = true;
    if (!createMask()) return false;
    const QString format = m_pcoMode ? QStringLiteral("b16") : QStringLiteral("tif");
    if (!saveMaskImage(output, format)) return false;
    _print(QStringLiteral(" Mask image saved in '") + output + "'");
    return true;
}
