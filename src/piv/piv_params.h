// PIV_Parameters: the holder of the current settings of an evaluation.
#pragma once

#include <cstdint>

#include "piv_error.h"
#include "piv_types.h"

namespace PIV {
// The evaluation method as parameter and data files name it, e.g.
// "multigrid with image-deformation".
const char* MethodDescription(const PIVEVAL_CFG& cfg);
}  // namespace PIV

class PIV_Parameters {
public:
    PIV_Parameters();
    // The defaults, then whatever the parameter file gives for view 0.
    explicit PIV_Parameters(const char* fileName);
    virtual ~PIV_Parameters();
    PIV_Parameters(const PIV_Parameters&) = delete;
    PIV_Parameters& operator=(const PIV_Parameters&) = delete;

    uint32_t addRef() { return ++m_refCount; }
    // Deletes the object when the last reference goes; returns the count left.
    uint32_t release();

    // Copies by value.
    PIVEVAL_CFG pivEvalCfg() const { return m_params.eval; }
    PIV_PARAMETERS pivParameters() const { return m_params; }
    IMAGE_CFG imageCfg() const { return m_imageCfg; }
    OUTLIER_CFG outlierCfg() const { return m_params.outlier; }
    POSTPROCESS_CFG postProcessCfg() const { return m_postProcessCfg; }
    PIVCONVERT_CFG pivConvertCfg() const { return m_params.convert; }
    DIFFERENTIATE_CFG differentiateCfg() const { return m_params.differentiate; }
    DATA_GRID4D dataGrid() const { return m_params.eval.grid; }

    // Stores cfg. True when grid, method, peak detection or SampleOffset
    // differ from what was held. With createGrid the grid is laid anew;
    // a grid that cannot be laid is reported by PIV::CreateDataGrid4D.
    bool setPivEvalCfg(const PIVEVAL_CFG& cfg, bool createGrid);
    void setPivParameters(const PIV_PARAMETERS& params);
    void setImageCfg(const IMAGE_CFG& cfg) { m_imageCfg = cfg; }
    void setOutlierCfg(const OUTLIER_CFG& cfg) { m_params.outlier = cfg; }
    void setPostProcessCfg(const POSTPROCESS_CFG& cfg) { m_postProcessCfg = cfg; }
    // Stores the record and recomputes its factors; true when anything changed.
    bool setPivConvertCfg(const PIVCONVERT_CFG& cfg);
    void setDifferentiateCfg(const DIFFERENTIATE_CFG& cfg) { m_params.differentiate = cfg; }

    bool requiresNewGrid(const PIVEVAL_CFG& cfg);
    bool isNewMethod(const PIVEVAL_CFG& cfg) const;
    bool isNewPeakDetection(const PIVEVAL_CFG& cfg) const;
    // Mends a record in place so that an evaluation can run with it.
    static void checkPivEvalCfg(PIVEVAL_CFG& cfg);

    bool setImageSize(int width, int height, int depth, bool createGrid);
    bool isNewImageSize(int width, int height, int depth) const;

    bool setDataGrid(const DATA_GRID4D& grid);
    // Sorts and clips the region to the image, enables it and optionally
    // lays the grid anew. True when the effective region changed.
    bool setROI(const RECT3D& roi, bool createGrid);
    // The pixel of the physical origin. True when it changed.
    bool setOrigin(const POINT3D& imageOrigin);
    // Pixels per grid unit on all axes. True when it changed.
    bool setScaleFactor(double pixelsPerUnit);

    bool updateConversionFactors();
    // Lays the grid anew and recomputes the factors; true when either changed.
    bool update();
    void convertVector(PIV_VECTOR* vector) const;

    // Parameter files. read() takes a parameter or NetCDF data file and
    // reports a bad name (23), a missing file (28) or a failed read (30).
    bool read(const char* fileName, int view = 0);
    bool readASCII(const char* fileName, int view = 0);
    // The NetCDF form: every record as attributes (23 for a bad name).
    bool save(const char* fileName, int view = 0);
    bool saveASCII(const char* fileName, int view = 0, bool unused = false);

    PIVerror& error() { return m_error; }

private:
    bool createGrid();

    PIV_PARAMETERS m_params;
    IMAGE_CFG m_imageCfg;
    POSTPROCESS_CFG m_postProcessCfg;
    PIVerror m_error;
    uint32_t m_refCount;
};
