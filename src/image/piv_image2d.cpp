#include "piv_image2d.h"

#include <cstring>

#include "piv3c_params.h"
#include "piv_filename.h"
#include "piv_messages.h"
#include "piv_record.h"

PIV_Image2D::PIV_Image2D(PIVimageIdentifier id) : m_id(id) {
    m_name[0] = m_originalName[0] = m_altDir[0] = '\0';
    m_mapper.setInterpolationMethod(PIV::INTERPOLATE_BSPLINE, 4);
}

PIV_Image2D::~PIV_Image2D() = default;

void PIV_Image2D::setName(const char* path) {
    PIV::CopyText(m_name, path);
}

void PIV_Image2D::setAltDir(const char* dir) {
    PIV::CopyText(m_altDir, dir);
}

void PIV_Image2D::destroy() {
    m_available = false;
    m_maskLoaded = false;
    m_maskLoadedAlone = false;
    m_split = false;
    m_name[0] = '\0';
    Image2D::destroy();
    m_mask.destroy();
    m_scratch.destroy();
}

std::string PIV_Image2D::lookForFile(const char* path) const {
    if (!path || !path[0]) return std::string();
    if (PIV::CheckFileExistence(path)) return path;
    const PIVFileName parts(path);
    const std::string name = parts.baseName() + parts.suffix() + parts.extension();
    if (m_altDir[0]) {
        const std::string alt = std::string(m_altDir) + "/" + name;
        if (PIV::CheckFileExistence(alt.c_str())) return alt;
    }
    if (PIV::CheckFileExistence(name.c_str())) return name;
    return std::string();
}

bool PIV_Image2D::requiresImagePreProcessing() const {
    if (!m_preProcess) return false;
    const IMAGE_FILTER_CFG& f = m_cfg.filters;
    return m_cfg.transformation.Enable || f.Lowpass || f.Threshold || f.Highpass || f.Median ||
           f.HistEqual || f.Invert || f.MinMax || m_cfg.MaskEnable || m_cfg.BkgdSubtract ||
           m_cfg.Rotation != 0 || m_cfg.Flip != 0 || m_cfg.Dewarp || m_cfg.Crop || m_stereo;
}

bool PIV_Image2D::loadMask() {
    if (!m_cfg.MaskEnable) return false;
    std::string path = lookForFile(m_cfg.Mask);
    if (m_id == PIV_IMAGE_B && m_cfg.Mask2Enable) {
        const std::string second = lookForFile(m_cfg.Mask2);
        if (!second.empty()) path = second;
    }
    return loadMask(path.c_str(), false);
}

bool PIV_Image2D::loadMask(const char* path, bool noRotate) {
    m_maskLoadedAlone = false;
    DebugPrint("--- LOADING MASK ---- '%s' rotation: %d  flip: %d", path ? path : "",
               m_cfg.Rotation, m_cfg.Flip);
    if (!path || !path[0] || !m_mask.load(path, 0)) return false;
    // Masks are drawn on the raw image; they turn with it.
    if (!m_stereo && !noRotate) m_mask.rotate(m_cfg.Rotation, m_cfg.Flip, false);
    m_maskLoadedAlone = true;
    return true;
}

bool PIV_Image2D::loadBackground() {
    m_backgroundLoaded = false;
    if (!m_cfg.BkgdSubtract) return false;
    std::string path = lookForFile(m_cfg.Bkgd);
    if (m_id == PIV_IMAGE_B && m_cfg.Bkgd2Subtract) {
        const std::string second = lookForFile(m_cfg.Bkgd2);
        if (!second.empty()) path = second;
    }
    if (path.empty()) {
        DebugPrintExt(2, "Background file not found: '%s'", m_cfg.Bkgd);
        return false;
    }
    m_background.setPCOSplitMode(m_split ? static_cast<PCO_SplitMode>(m_id) : PCO_SPLIT_NONE);
    if (!m_background.load(path.c_str(), m_id)) return false;
    // A double image that its format did not split: the half of this frame.
    const uint64_t w = width(), h = height();
    if (m_background.width() == w && m_background.height() == 2 * h) {
        const int32_t top = m_id == PIV_IMAGE_A ? 0 : static_cast<int32_t>(h);
        m_background.crop(RECT2D{0, static_cast<int32_t>(w), top, top + static_cast<int32_t>(h)});
    }
    m_backgroundLoaded = isSameSize(m_background, false);
    return m_backgroundLoaded;
}

bool PIV_Image2D::load(const char* path, bool pcoMode) {
    m_available = false;
    m_maskLoaded = false;
    m_split = false;
    m_name[0] = '\0';
    const int page = pcoMode ? static_cast<int>(m_id) : 0;
    setPCOSplitMode(pcoMode ? static_cast<PCO_SplitMode>(m_id) : PCO_SPLIT_NONE);
    DebugPrint("PIVimage::load(%s, page=%d)", path ? path : "", page);
    // The halves of a double image count from 1, the pages of a TIFF from
    // 0: frame A of a two-page TIFF is its page 0, and frame B page 1.
    const bool tiffPages = pcoMode && getFileFormat(path) == PIV::FORMAT_TIFF;
    // Pre-processing works in float: the frame is made float as it is read.
    const int filePage = tiffPages ? page - 1 : page;
    if (!(m_preProcess ? loadAsFloat(path, filePage) : Image2D::load(path, filePage))) return false;

    m_available = true;
    m_pcoMode = pcoMode;
    m_split = pcoMode && wasSplitPCO();

    m_maskLoaded = loadMask();
    loadBackground();
    if (m_preProcess)
        preProcessUsingMaskAndBackground(m_cfg, m_maskLoaded ? &m_mask : nullptr,
                                         m_backgroundLoaded ? &m_background : nullptr, false, false,
                                         page);

    if (!m_stereo && m_cfg.Dewarp) {
        const std::string mapFile = lookForFile(m_cfg.DewarpFile);
        PIV3C_Parameters calibration;
        const int view = m_cfg.DewarpView;
        bool usable = false;
        if (mapFile.empty()) {
            DebugPrintExt(1, "Dewarp file not found: '%s'", m_cfg.DewarpFile);
        } else if (calibration.load(mapFile.c_str())) {
            usable = PIV::IsValidMapping(&calibration.mapping(view));
            // The default view is 1: a file of one view has nothing there.
            if (!usable)
                PrintWarning("'%s' holds no mapping for view %d: image not dewarped",
                             mapFile.c_str(), view);
        }
        if (usable) {
            DebugPrint("  about to dewarp images with view %d", view);
            const MAPPING_FXN_2D& map = calibration.mapping(view);
            if (m_maskLoaded) {
                dewarpImage(m_mask, map, true);
                m_mask.to8Bit();
            }
            m_mapper.setInterpolationMethod(m_cfg.InterpolationMethod, m_cfg.InterpolationDegree);
            dewarpImage(*this, map, false);
            if (m_cfg.DewarpCalibrate) {
                m_convert.ImageOrigin = calibration.imageOrigin(view, 1);
                m_convert.LengthConversion[0] = calibration.magX();
                m_convert.LengthConversion[1] = calibration.magY();
                m_convert.LengthConversion[2] = calibration.magZ();
                PIV::CopyText(m_convert.LengthConversionUnits, calibration.gridUnit(view));
            }
        }
    }

    if (m_stereo && m_stereoParams) {
        const MAPPING_FXN_2D& map = m_stereoParams->mapping(m_stereoView);
        m_mapper.setInterpolationMethod(m_cfg.InterpolationMethod, m_cfg.InterpolationDegree);
        if (m_maskLoaded) {
            resampleInPlace(*this, map, false);
            m_mapper.setInterpolationMethod(PIV::INTERPOLATE_BILINEAR, 2);
            resampleInPlace(m_mask, map, true);
            m_mask.to8Bit();
            m_mapper.setInterpolationMethod(m_cfg.InterpolationMethod, m_cfg.InterpolationDegree);
        } else {
            dewarpImageAndCreateMask(*this, map, m_mask);
            m_maskLoaded = true;
        }
        m_maskLoaded = m_maskLoaded && !m_mask.isNull() && isSameSize(m_mask, false);
    }

    if (m_maskLoaded && !isSameSize(m_mask, false)) {
        PrintWarning("mask '%s' is %dx%d, the image %dx%d: not used", m_mask.fileName(),
                     static_cast<int>(m_mask.width()), static_cast<int>(m_mask.height()),
                     static_cast<int>(width()), static_cast<int>(height()));
        m_maskLoaded = false;
    }
    if (m_maskLoaded && !m_cfg.MaskRandomize) applyMask(m_mask, false);

    if (!m_stereo && !m_cfg.Dewarp && m_cfg.Crop) {
        const RECT3D& r = m_cfg.CropRect;
        const RECT2D rect{r.left, r.right, r.top, r.bottom};
        crop(rect);
        if (m_maskLoaded) m_mask.crop(rect);
    }

    PIV::CopyText(m_name, path);
    PIV::CopyText(m_originalName, path);
    return true;
}

namespace {

// Runs `map` on the scratch copy of `image` into `image`, as float; integer
// sources are clipped at 0 from below, since spline overshoot is no signal.
template <typename Resample>
bool _dewarp(Image2D& image, Image2D& scratch, const MAPPING_FXN_2D& map, Resample&& resample) {
    if (!scratch.copy(image)) return false;
    const bool wasFloat = image.isFloat();
    const std::string name = image.fileName();
    if (!image.resize(map.dest_img_width, map.dest_img_height, IMAGE_FLOAT)) return false;
    image.setFileName(name.c_str());
    if (!resample(scratch, image)) return false;
    if (!wasFloat) image.clipLow(0);
    return true;
}

}  // namespace

bool PIV_Image2D::dewarpImage(Image2D& image, const MAPPING_FXN_2D& map, bool mask) {
    // Stereo frames go through their view's map on load only.
    if (m_stereo) return false;
    return resampleInPlace(image, map, mask);
}

bool PIV_Image2D::resampleInPlace(Image2D& image, const MAPPING_FXN_2D& map, bool mask) {
    if (image.isNull()) return false;
    DebugPrint("--- PIVimage::dewarpImage(%s, mask=%d) ---", image.fileName(), mask ? 1 : 0);
    m_mapper.clearSplineCoeffs();
    m_mapper.setMappingFunction(map);
    return _dewarp(image, m_scratch, map, [&](const Image2D& src, Image2D& dst) {
        return m_mapper.mapImage(src, dst, mask, false);
    });
}

bool PIV_Image2D::dewarpImageAndCreateMask(Image2D& image, const MAPPING_FXN_2D& map,
                                           Image2D& maskImage) {
    if (image.isNull()) return false;
    DebugPrint("--- PIVimage::dewarpImageWithMask(%s) ---", image.fileName());
    m_mapper.clearSplineCoeffs();
    m_mapper.setMappingFunction(map);
    return _dewarp(image, m_scratch, map, [&](const Image2D& src, Image2D& dst) {
        return m_mapper.mapImageAndCreateMask(src, dst, maskImage, false);
    });
}
