// RecentFiles: the files a window opened last, newest first, as a menu and
// as a list in the settings store.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class QMenu;
class QSettings;

class RecentFiles : public QObject {
    Q_OBJECT
public:
    // `group` names the list in the settings store.
    RecentFiles(const QString& group, QObject* parent = nullptr);
    ~RecentFiles() override;

    // Kept in 3 to 10; a shorter list drops its oldest entries.
    void setMaxFiles(int count);
    int maxFiles() const { return m_max; }
    // The absolute path goes to the front; an earlier entry of it goes.
    void addFile(const QString& path);
    const QStringList& files() const { return m_files; }

    // A menu of the entries, rebuilt whenever the list changes.
    QMenu* menu(const QString& title);

    // READ takes the stored list (cut to the length), WRITE stores it.
    void registryIO(QSettings& settings, bool write);

signals:
    void signalOpenFile(const QString& path);

private:
    void updateMenu();

    QString m_group;
    QStringList m_files;
    int m_max = 4;
    QMenu* m_menu = nullptr;
};
