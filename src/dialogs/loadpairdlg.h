// LoadPairDlg: the two frames of a pair, chosen one by one.
#pragma once

#include <QDialog>

class QLineEdit;

struct IMAGEPAIR_FILES {
    char FileA[2048];
    char FileB[2048];

    IMAGEPAIR_FILES();
};

class LoadPairDlg : public QDialog {
    Q_OBJECT
public:
    explicit LoadPairDlg(QWidget* parent = nullptr);

    void setRecord(const IMAGEPAIR_FILES& files);
    IMAGEPAIR_FILES record() const;
    // The filter of the file choosers.
    void setFileFilters(const QString& filters) { m_filters = filters; }

signals:
    // "Load" pressed with both names given; record() holds them.
    void signalLoadPair();

private:
    void browse(QLineEdit* edit, const QString& title);

    QLineEdit* m_fileA;
    QLineEdit* m_fileB;
    QString m_filters;
};
