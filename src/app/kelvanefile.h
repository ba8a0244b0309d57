// KelvaneFile: where the session's results go, and under which names.
#pragma once

#include <QString>

#include "piv_types.h"

class KelvaneFile {
public:
    // What defaultFileName and defaultFileTypeName are asked for.
    enum Type { PIXEL_DATA = 256, VELOCITY_DATA = 2048, PARAMETERS = 8192 };

    // Base name and source directory of `path`; the destination follows the
    // source until it is set on its own.
    void setFileName(const QString& path);
    void setDestinationDir(const QString& dir) { m_destDir = dir; }
    const QString& baseName() const { return m_baseName; }
    const QString& sourceDir() const { return m_sourceDir; }
    const QString& destinationDir() const { return m_destDir; }

    // An OUTPUT_CFG format: 3 NetCDF, 2 Tecplot binary, else text.
    void setFormat(int format) { m_format = format; }
    int format() const { return m_format; }
    void setSpeckleMode(bool on) { m_speckle = on; }
    OUTPUT_CFG& output() { return m_output; }

    // Destination, base name, the suffix of the type and the extension of
    // the format; NetCDF files take no suffix, a parameter file only ".par".
    QString defaultFileName(int type) const;
    QString defaultFileTypeName(int type) const;
    // The name to save parameters under when none was chosen.
    QString parameterFileName() const;

    // The extension of an OUTPUT_CFG format, with its dot.
    static QString extension(int format);

private:
    QString m_baseName, m_sourceDir, m_destDir;
    int m_format = 3;
    bool m_speckle = false;
    OUTPUT_CFG m_output;
};
