// KelvaneDataObject: the one owner of a window's session data (image pair,
// parameter records, vector fields, masks) and of the rules that tie them
// together: a new image clears the vectors, new evaluation settings lay a new
// grid, new validation or conversion settings run the post-processing again.
#pragma once

#include <QObject>
#include <QRect>
#include <QString>
#include <memory>

#include "kelvanestate.h"
#include "mysettings.h"
#include "piv_error.h"
#include "piv_types.h"
#include "ptv_types.h"

class Image2D;
class PIV3C_Parameters;
class PIV_Data2D;
class PIV_Parameters;
class PTV_Data2D;
class QPIV_ImagePair;
struct DIFFERENTIALS;

// Slots 0 view A, 1 view B, 2 three-component result, 3 post-processed
// result. With stereo off (always, in this edition) slots 0 to 2 alias one
// object and all four image entries one pair; slot 3 is an object of its own.
// Track data of the slots come with the tracking library.
class KelvaneDataObject : public QObject {
    Q_OBJECT
public:
    KelvaneDataObject(KelvaneState* state, MySettings* settings, QObject* parent = nullptr);
    ~KelvaneDataObject() override;
    KelvaneDataObject(const KelvaneDataObject&) = delete;
    KelvaneDataObject& operator=(const KelvaneDataObject&) = delete;

    // ---- views and slots ---------------------------------------------------
    // A negative view is the current one; with stereo off 0 stays 0 and any
    // other view is the post-processed slot 3. A data load replaces the
    // field of slot 0, as an image load the pair.
    int slotOfView(int view) const;
    PIV_Data2D* data(int view = -1) const { return m_data[slotOfView(view)]; }
    PIV_Parameters* parameters(int view = -1) const { return m_params[slotOfView(view)]; }
    Image2D* mask(int view = -1) const { return m_masks[slotOfView(view)]; }
    // A successful load replaces the pair: ask again after signalHaveNewImage.
    QPIV_ImagePair* image(int view = -1) const;
    bool haveData(int view = -1) const;
    bool isFileData(int view = -1) const;
    bool isEvaluated(int view = -1) const;
    bool isIntermediateData(int view = -1) const;
    bool haveMultiplePeaks(int view = -1) const;
    void setFileData(bool on, int view = -1);
    void setIntermediateData(bool on, int view = -1);
    bool haveImage(int view = -1) const;
    bool isImagePair() const;
    bool isImageAvailable() const;

    // ---- particle tracks ---------------------------------------------------
    // A scan's tracks, shared with what draws them and never changed after;
    // a new field or pair drops them.
    std::shared_ptr<const PTV_Data2D> ptvData(int view = -1) const {
        return m_ptv[slotOfView(view)];
    }
    bool havePTVdata(int view = -1) const;
    void setPTVdata(std::shared_ptr<const PTV_Data2D> tracks, int view = -1);
    const PTV_PARAMS& ptvParameters() const { return m_ptvParams; }
    // Takes a record that differs; announces the record either way.
    bool setPTVParameters(const PTV_PARAMS& cfg);

    void setEvaluated(bool on);
    void clearPivData();
    void clearAll();
    void setDataType(int flags);

    int analysisMode() const { return m_analysisMode; }
    void setAnalysisMode(int mode);
    KelvaneMode kelvaneMode() const { return m_mode; }
    void setKelvaneMode(KelvaneMode mode);
    int currentView() const { return m_currentView; }
    void setCurrentView(int view);
    KelvaneState* state() const { return m_state; }

    // Two-component edition: the flag never becomes true.
    bool isStereoMode() const { return m_stereoEnabled; }
    void setFlagStereoMode(bool on);
    bool loadStereoProject(const QString& fileName);
    bool saveStereoProject(const QString& fileName);
    bool loadStereoImage(const QString& fileA, const QString& fileB, int view);
    bool mergeStereoViews(const PIVCONVERT_CFG& cfg);

    // ---- loads: a failed load leaves the session as it was ------------------
    bool loadPivImage(const QString& fileA, const QString& fileB, bool splitPCO, int view);
    bool reloadImage();
    bool loadMaskImage(const QString& fileName, int view);
    bool loadParameters(const QString& fileName);
    bool loadPivData(const QString& fileName, int view, bool loadParams);
    // Why the last load failed, naming the file; empty after a success.
    const QString& lastError() const { return m_lastError; }

    // ---- parameters --------------------------------------------------------
    // True when anything changed (or, for raw data, what post-processing gives).
    bool setPivParameters(const PIV_PARAMETERS& a, const PIV_PARAMETERS& b);
    bool setPostProcessCfg(const POSTPROCESS_CFG& cfg);
    POSTPROCESS_CFG postProcessCfg() const;
    // True when the rectangle was taken as asked, not clipped.
    bool setROI(const RECT3D& rect);
    bool setROI(const QRect& rect);
    // x and y truncated to whole pixels.
    bool setOrigin(const FPOINT2D& point);
    bool setPivConvertCfg(const PIVCONVERT_CFG& cfg);
    bool setGlobalHistograms(const GLOBALHIST_ROI* rois, bool enable, int view);

    // ---- data --------------------------------------------------------------
    bool doPostProcessing();
    void regridData();
    bool calcPivStats();
    PIV_VECTOR getNearestVector(const FPOINT2D& point, bool* ok) const;
    DIFFERENTIALS getNearestDifferentials(const FPOINT2D& point, bool* ok) const;
    SIZE2D imageSize(int view = -1) const;
    // Counts the loads of a mask into the pair, which change it in place.
    quint64 maskRevision() const { return m_maskRevision; }
    // A pixel position in the units of the conversion settings of view A;
    // y counted from the image's top row, or with fromTop false its bottom.
    double physicalX(double x) const;
    double physicalY(double y, bool fromTop) const;

    // ---- names ---------------------------------------------------------------
    QString title(int view = -1) const;
    QString caption(int view = -1) const;
    QString fileName(int view = -1) const;
    QString fileDir(int view = -1) const;
    QString filePath(int view = -1) const;
    QString currentOutputDir() const;
    const QString& dataFileName() const { return m_dataFileName; }
    void setOutputFileName(const QString& name) { m_outputFileName = name; }

    // ---- settings ------------------------------------------------------------
    void registryIO(MySettings::AccessMode mode);
    void doCleanUp(bool save);
    bool isTIFFCompression() const { return m_tiffCompression; }
    bool isOriginTopLeft() const { return m_originTopLeft; }
    // Taken by the next image load, and stored with the session's settings.
    void setTIFFCompression(bool on) { m_tiffCompression = on; }
    void setOriginTopLeft(bool on) { m_originTopLeft = on; }

    PIVerror& error() { return m_error; }

public slots:
    void slotClearPivData();
    void slotSetNewPivData();
    void slotShowViewA() { setCurrentView(0); }
    void slotShowViewB() { setCurrentView(1); }
    void slotShowView3C() { setCurrentView(2); }
    void slotShowViewResult() { setCurrentView(3); }
    void slotToggleStereoMode();
    void slotToggleRoiMode();
    void slotUpdateStereoGeometry();

signals:
    void signalMessage(const QString& text);
    void signalLogMessage(const QString& text);
    void signalSetCaption(const QString& text);
    void signalHaveNewImage(int view);
    void signalHaveNewData(int view);
    void signalShowMask(int view, bool show);
    void signalChangedAnalysisMode();
    void signalChangedKelvaneMode();
    void signalChangedView(int view);
    void signalChangedStereoMode();
    void signalHaveNewParameters();
    void signalHaveNewStereoGeometry();
    void signalAboutToQuit(bool save);
    void signalHaveNewRulerPosition();
    void signalHaveNewOrigin();
    void signalNewImageSize(SIZE2D size);
    void signalHaveNewPTVData(int view);
    void signalHaveNewPTVParameters();
    // The pair is about to be deleted: whoever shows its frames lets go.
    void signalReleaseImages();

private:
    // Makes `pair` the pair of every view, deleting the one it replaces.
    void adoptImagePair(QPIV_ImagePair* pair);
    // Replaces the field of slot 0 (and its aliases) after a load.
    void adoptData(PIV_Data2D* field);
    void clearVectors();
    // The slot's field on the slot's grid, once the grid has nodes.
    void regrid(int slot);
    // The statistics of a slot under its label, logged when they changed.
    void logStats(int slot, const QString& label);
    bool failLoad(const QString& reason);
    // A parameter file's records, read and checked but not yet taken over.
    struct ParameterFile;
    bool readParameters(const QString& fileName, ParameterFile& file);
    void takeParameters(const QString& fileName, ParameterFile& file);

    PIVerror m_error;
    PIV_Data2D* m_data[4];
    std::shared_ptr<const PTV_Data2D> m_ptv[4];
    PTV_PARAMS m_ptvParams;
    PIV_Parameters* m_params[4];
    QPIV_ImagePair* m_images[4];
    KelvaneState* m_state;
    bool m_tiffCompression = false;
    bool m_originTopLeft = true;
    Image2D* m_masks[4];
    PIV3C_Parameters* m_stereoParams;
    int m_analysisMode = 1;
    quint64 m_maskRevision = 0;
    KelvaneMode m_mode = MODE_NONE;
    int m_currentView = 0;
    bool m_stereoEnabled = false;
    MySettings* m_settings;
    QString m_lastError, m_dataFileName, m_outputFileName, m_lastStatsText;
};
