// The MaskEdit program: the editor window on its own, or with "-q" a mask
// made from the command line.
#include <QApplication>
#include <QSettings>

#include "maskedit.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QSettings settings(QStringLiteral("SODREL"), QStringLiteral("MaskEdit"));
    MaskEdit editor(true, &settings);
    const bool ok = editor.processCommandLine();
    if (editor.quitRequested()) return ok ? 0 : 1;
    editor.show();
    return app.exec();
}
