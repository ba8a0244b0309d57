// PIV3C_Parameters: what the dewarping of a frame needs from a stereo
// calibration: one mapping per camera view, the magnification of the
// dewarped images and the unit of the calibration grid.
//
// The file is an ASCII parameter file:
//
//   # Kelvane view calibration
//   NumberOfViews = 2
//   MagX = 2, MagY = 2, MagZ = 2          (pixels of the dewarped image per unit)
//   View0_GridUnit = "mm"
//   View0_maptype = 1                     (the coefficient keys of
//   View0_maporder = 1                     PIV::SaveProjectionMatrix, each
//   View0_a00 = ...                        behind its view's prefix)
//   ...
//   View1_GridUnit = "mm"
//   View1_maptype = ...
//
// One function, serialize(), reads and writes it, by the mode of the file.
#pragma once

#include <string>

#include "mapping_fxn2d.h"
#include "piv_error.h"
#include "piv_types.h"

class ASCIIParFile;

class PIV3C_Parameters {
public:
    static constexpr int MaxViews = 2;
    static constexpr const char* FileMagic = "# Kelvane view calibration";

    PIV3C_Parameters();

    // False with error 23 for a bad name, 28 for a missing file and 32 for a
    // file without the keys of a view calibration.
    bool load(const char* fileName);
    bool save(const char* fileName);
    bool serialize(ASCIIParFile& file);

    int viewCount() const { return m_views; }
    void setViewCount(int views);
    // The mapping of a view; an out-of-range view gives an empty mapping.
    const MAPPING_FXN_2D& mapping(int view) const;
    bool setMapping(int view, const MAPPING_FXN_2D& map);

    // The pixel of the object origin: with `dewarped` 1 in the dewarped image
    // ((offset) * magnification), with 0 in the recorded image, through the
    // view's mapping.
    POINT3D imageOrigin(int view, int dewarped) const;
    double magX() const { return m_mag[0]; }
    double magY() const { return m_mag[1]; }
    double magZ() const { return m_mag[2]; }
    void setMagnification(double x, double y, double z);
    const char* gridUnit(int view) const;
    void setGridUnit(int view, const char* unit);

    PIVerror& error() { return m_error; }

private:
    PIVerror m_error;
    int m_views;
    double m_mag[3];
    MAPPING_FXN_2D m_maps[MaxViews];
    char m_gridUnit[MaxViews][64];
};
