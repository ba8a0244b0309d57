#include "piv3c_params.h"

#include <cmath>
#include <cstdio>

#include "asciiparfile.h"
#include "piv_filename.h"
#include "piv_record.h"

PIV3C_Parameters::PIV3C_Parameters() : m_error("PIV3C_Parameters"), m_views(1) {
    m_mag[0] = m_mag[1] = m_mag[2] = 1.0;
    for (int v = 0; v < MaxViews; v++) PIV::CopyText(m_gridUnit[v], "mm");
}

void PIV3C_Parameters::setViewCount(int views) {
    m_views = views < 1 ? 1 : (views > MaxViews ? MaxViews : views);
}

const MAPPING_FXN_2D& PIV3C_Parameters::mapping(int view) const {
    static const MAPPING_FXN_2D empty;
    return view >= 0 && view < MaxViews ? m_maps[view] : empty;
}

bool PIV3C_Parameters::setMapping(int view, const MAPPING_FXN_2D& map) {
    if (view < 0 || view >= MaxViews) return false;
    m_maps[view] = map;
    return true;
}

void PIV3C_Parameters::setMagnification(double x, double y, double z) {
    m_mag[0] = x;
    m_mag[1] = y;
    m_mag[2] = z;
}

const char* PIV3C_Parameters::gridUnit(int view) const {
    return view >= 0 && view < MaxViews ? m_gridUnit[view] : "";
}

void PIV3C_Parameters::setGridUnit(int view, const char* unit) {
    if (view >= 0 && view < MaxViews) PIV::CopyText(m_gridUnit[view], unit);
}

POINT3D PIV3C_Parameters::imageOrigin(int view, int dewarped) const {
    const MAPPING_FXN_2D& m = mapping(view);
    const double mag = m.magnification > 0.0 ? m.magnification : 1.0;
    double x = m.obj_x_offset * mag, y = m.obj_y_offset * mag;
    if (dewarped != 1) {
        double ix, iy;
        m.mappedPoint(x, y, ix, iy);
        x = ix;
        y = iy;
    }
    auto toInt = [](double v) {
        return std::isfinite(v) && std::fabs(v) < 1e9 ? static_cast<int32_t>(std::lround(v)) : 0;
    };
    return POINT3D{toInt(x), toInt(y), 0};
}

bool PIV3C_Parameters::serialize(ASCIIParFile& file) {
    const bool writing = file.writeMode();
    file.addComment(FileMagic);
    int views = m_views;
    const int found = file.serialize("NumberOfViews", &views);
    if (!writing) setViewCount(views);
    file.serializeVals("MagX", &m_mag[0]);
    file.serializeVals("MagY", &m_mag[1]);
    file.serializeVals("MagZ", &m_mag[2]);
    char group[32];
    bool mapsFound = true;
    for (int v = 0; v < m_views; v++) {
        std::snprintf(group, sizeof(group), "View%d_", v);
        file.beginGroup(group);
        file.serializeString("GridUnit", m_gridUnit[v], sizeof(m_gridUnit[v]));
        file.endGroup();
        mapsFound = PIV::SerializeProjectionMatrix(file, &m_maps[v], group) && mapsFound;
    }
    return writing || (found && mapsFound);
}

bool PIV3C_Parameters::load(const char* fileName) {
    if (!fileName || !fileName[0]) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "load()");
        return false;
    }
    if (!PIV::CheckFileExistence(fileName)) {
        m_error.setMessage("load() - cannot find '%s'", fileName);
        m_error.handleError(PIVerror::FILE_NOT_FOUND, "load()");
        return false;
    }
    ASCIIParFile file(fileName, ASCIIParFile::READ);
    PIV3C_Parameters read;
    if (!file.isValid() || !read.serialize(file)) {
        m_error.setMessage("load() - '%s' holds no view calibration", fileName);
        m_error.handleError(PIVerror::INVALID_FILE_CONTENT, "load()");
        return false;
    }
    m_views = read.m_views;
    for (int i = 0; i < 3; i++) m_mag[i] = read.m_mag[i];
    for (int v = 0; v < MaxViews; v++) {
        m_maps[v] = read.m_maps[v];
        PIV::CopyText(m_gridUnit[v], read.m_gridUnit[v]);
    }
    return true;
}

bool PIV3C_Parameters::save(const char* fileName) {
    if (!fileName || !fileName[0]) {
        m_error.handleError(PIVerror::BAD_FILE_NAME, "save()");
        return false;
    }
    ASCIIParFile file(fileName, ASCIIParFile::WRITE);
    if (!serialize(file) || file.close() == 0) {
        m_error.setMessage("save() - trouble writing '%s'", fileName);
        m_error.handleError(PIVerror::FILE_WRITE_FAILED, "save()");
        return false;
    }
    return true;
}
