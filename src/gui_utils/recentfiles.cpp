#include "recentfiles.h"

#include <QAction>
#include <QFileInfo>
#include <QMenu>
#include <QSettings>

#include <algorithm>

RecentFiles::RecentFiles(const QString& group, QObject* parent) : QObject(parent), m_group(group) {}

// The menu has no parent widget: it goes with the list.
RecentFiles::~RecentFiles() {
    delete m_menu;
}

void RecentFiles::setMaxFiles(int count) {
    m_max = std::clamp(count, 3, 10);
    if (m_files.size() > m_max) {
        m_files = m_files.mid(0, m_max);
        updateMenu();
    }
}

void RecentFiles::addFile(const QString& path) {
    if (path.isEmpty()) return;
    const QString absolute = QFileInfo(path).absoluteFilePath();
    m_files.removeAll(absolute);
    m_files.prepend(absolute);
    if (m_files.size() > m_max) m_files = m_files.mid(0, m_max);
    updateMenu();
}

QMenu* RecentFiles::menu(const QString& title) {
    if (!m_menu) m_menu = new QMenu(title);
    updateMenu();
    return m_menu;
}

void RecentFiles::updateMenu() {
    if (!m_menu) return;
    m_menu->clear();
    for (int i = 0; i < m_files.size(); ++i) {
        const QString path = m_files[i];
        m_menu->addAction(QStringLiteral("&%1 %2").arg(i + 1).arg(QFileInfo(path).fileName()), this,
                          [this, path] { emit signalOpenFile(path); });
    }
    m_menu->setEnabled(!m_files.isEmpty());
}

void RecentFiles::registryIO(QSettings& settings, bool write) {
    const QString key = QStringLiteral("/%1/Files").arg(m_group);
    if (write) {
        settings.setValue(key, m_files);
        return;
    }
    if (!settings.contains(key)) return;
    m_files = settings.value(key).toStringList().mid(0, m_max);
    m_files.removeAll(QString());
    updateMenu();
}
