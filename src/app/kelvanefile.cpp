#include "kelvanefile.h"

#include <QFileInfo>

void KelvaneFile::setFileName(const QString& path) {
    const QFileInfo info(path);
    m_baseName = info.completeBaseName();
    const bool followed = m_destDir.isEmpty() || m_destDir == m_sourceDir;
    m_sourceDir = info.absolutePath();
    if (followed) m_destDir = m_sourceDir;
}

QString KelvaneFile::extension(int format) {
    if (format == 3) return QStringLiteral(".nc");
    if (format == 2) return QStringLiteral(".plt");
    return QStringLiteral(".dat");
}

QString KelvaneFile::defaultFileName(int type) const {
    const QString stem = m_destDir + QStringLiteral("/") + m_baseName;
    if (type == PARAMETERS) return stem + QStringLiteral(".par");
    if (m_format == 3) return stem + extension(m_format);
    QString suffix = QStringLiteral("_piv");
    if (type == VELOCITY_DATA)
        suffix = m_speckle ? QStringLiteral("_disp") : QStringLiteral("_vel");
    return stem + suffix + extension(m_format);
}

QString KelvaneFile::defaultFileTypeName(int type) const {
    if (type == PIXEL_DATA) return QStringLiteral("PIV pixel displacement data file");
    if (type == VELOCITY_DATA)
        return m_speckle ? QStringLiteral("Speckle displacement data file")
                         : QStringLiteral("PIV Velocity data file");
    return QStringLiteral("PIV data file");
}

QString KelvaneFile::parameterFileName() const {
    if (m_baseName.isEmpty()) return m_destDir + QStringLiteral("/kelvane.par");
    return defaultFileName(PARAMETERS);
}
