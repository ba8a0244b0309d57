// PrefsDlg: the program's preferences, the file types of the open dialogs
// and the session settings the window hands it when it opens.
#pragma once

#include <QDialog>
#include <cstdint>

#include "mysettings.h"
#include "recordform.h"

class QCheckBox;
class QComboBox;

// Image types whose extension masks the file dialogs use.
enum PrefsImageType : int32_t {
    IMAGES_PIV_PAIRS = 0,
    IMAGES_PCO_DOUBLE = 1,
    IMAGES_PIV_DOUBLE = 2,
    IMAGES_REFERENCE = 3,
    IMAGES_DISPLACED = 4,
    IMAGES_MASK = 5,
    IMAGES_CALIBRATION = 6,
    IMAGES_BACKGROUND = 7,
    IMAGE_TYPE_COUNT = 8
};

struct PREFS_CFG {
    int32_t RecentImageCount, RecentFileCount;
    bool ShowSplash;
    bool CompressedTIFFOutput;
    bool NoExitPrompt;  // stored as "ShowExitPrompt"
    bool AlwaysSaveSettings;
    int32_t ParFileFormat;   // 0 text, 1 NetCDF
    int32_t ToolButtonSize;  // icons of index * 8 + 8 px
    bool ToolButtonText;
    int32_t ToolButtonFontSize, DialogFontSize;
    int32_t ImageTypeMask[IMAGE_TYPE_COUNT];  // bit 0 "*.b16" .. bit 10 "*.ppm"
    int32_t PivFileMask;                      // bit 12 "*.piv" .. bit 15 "*.dat"
    // The session's state, filled by the window before the dialog shows.
    bool AutoScale, RelativePaths, OriginTopLeft, SIMDEnable, VectorSampling;
    int32_t InterpolationMethod, InterpolationDegreeIndex, SamplingROI, MaxThreads;

    PREFS_CFG();
};

class PrefsDlg : public QDialog {
    Q_OBJECT
public:
    explicit PrefsDlg(QWidget* parent = nullptr);

    void setRecord(const PREFS_CFG& cfg);
    PREFS_CFG record() const;
    // The most threads the thread control offers.
    void setMaxThreadsPossible(int count);

    // The keys of "/Prefs" and "/FileTypes"; READ keeps absent keys.
    static void registryIO(MySettings& settings, MySettings::AccessMode mode, PREFS_CFG& cfg);

private:
    void storeTypeBoxes(PREFS_CFG& cfg, int type) const;
    void loadTypeBoxes(int type);

    PREFS_CFG m_cfg;
    RecordForm m_form{&m_cfg};
    QComboBox* m_imageTypes;
    QCheckBox* m_extensions[11];
    QCheckBox* m_dataTypes[4];
    int m_shownType = 0;
    QWidget* m_threads;
};
