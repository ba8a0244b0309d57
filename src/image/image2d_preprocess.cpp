// Image2D: the pre-processing drivers, which run the filters in a fixed order
// from the settings records.
#include <cctype>
#include <cstring>
#include <string>

#include "image2d.h"
#include "piv_messages.h"

namespace {

// A path from the settings without surrounding blanks and quotes.
std::string _getCleanFilePath(const char* path) {
    std::string s = path ? path : "";
    const char* junk = " \t\r\n\"'";
    const size_t first = s.find_first_not_of(junk);
    if (first == std::string::npos) return std::string();
    const size_t last = s.find_last_not_of(junk);
    return s.substr(first, last - first + 1);
}

// Background subtraction and division of step 1; a background that does not
// fit is reported and skipped.
void _applyBackground(Image2D& img, Image2D& background, const IMAGE_CFG& cfg) {
    if (!img.isSameSize(background, false)) {
        DebugPrintExt(2, "Mismatch of image with background image");
        return;
    }
    if (cfg.BkgdSubtractMethod != 1) {
        if (img.isFloat()) background.toFloat();
        img.subtract(background, true);
        img.clipLow(0);
    }
    if (cfg.BkgdSubtractMethod == 1 || cfg.BkgdSubtractMethod == 2) {
        img.toFloat();
        background.toFloat();
        img /= background;
        img *= cfg.BkgdSubtractScaleFactor;
    }
}

// Loads the background of the image's page; false when the file does not fit.
bool _loadBackground(const Image2D& img, const IMAGE_CFG& cfg, int page, Image2D& background) {
    const char* file = cfg.Bkgd;
    if ((img.currentPage() == 2 || page == 2) && cfg.Bkgd2Subtract && cfg.Bkgd2[0] != 0)
        file = cfg.Bkgd2;
    const std::string path = _getCleanFilePath(file);
    DebugPrint("  background subtraction: %s", path.c_str());
    int format = 0, width = 0, height = 0, frames = 0;
    ImageType type = IMAGE_UNDEFINED;
    const bool known =
        Image2D::GetImageInfo(path.c_str(), &format, &type, &width, &height, &frames);
    const bool split = known && static_cast<uint64_t>(height) == 2 * img.height();
    if (known && (static_cast<uint64_t>(width) != img.width() ||
                  (static_cast<uint64_t>(height) != img.height() && !split))) {
        DebugPrintExt(2, "Mismatch of image with background image");
        return false;
    }
    if (!background.load(path.c_str(), 0)) return false;
    if (background.height() == 2 * img.height()) {
        // A double frame: the half that belongs to the image's page.
        const int half = static_cast<int>(img.height());
        const int first = (img.currentPage() == 2 || page == 2) ? half : 0;
        if (!background.crop(RECT2D{0, static_cast<int32_t>(img.width()), first, first + half}))
            return false;
    }
    return true;
}

// Steps 7 to 12, shared by both pre-processing drivers. False when the
// clipping fails, which ends the chain.
bool _filterSteps(Image2D& img, const IMAGE_FILTER_CFG& f) {
    if (f.Median) img.medianFilter(f.MedianSize);
    if (f.MinMax) img.minMaxFilter(f.MinMaxKernel, 0);
    if (f.HistEqual && !img.dynamicClipping(f.HistMin, f.HistMax)) return false;
    if (f.Highpass) {
        if (f.HighpassUseGauss)
            img.highPassGauss(f.HighpassCutOff, 0.05f);
        else
            img.highPass(static_cast<int>(f.HighpassCutOff), 0);
        if (f.HighpassClipNegative) img.clipLow(0);
    }
    if (f.Threshold) {
        if (f.ThresholdBinarize)
            img.binarize(f.ThresholdLevel, false);
        else
            img.clipHigh(f.ThresholdLevel);
    }
    if (f.Lowpass) {
        if (f.LowpassUseGauss) {
            img.smoothGauss(f.LowpassCutOff, f.CenteredGauss, 0.05f);
        } else {
            img.showStatus("  Lowpass filtering with 3x3 Gauss kernel");
            img.convolve(0.2f, 0.6f, 0.2f, Image2D::KERNEL_XY);
        }
    }
    return true;
}

// Rotation and flip of the settings; flip 3 with rotation 180 counts as flip 0.
void _orient(Image2D& img, Image2D* mask, const IMAGE_CFG& cfg) {
    int flip = cfg.Flip;
    if (flip == 3 && cfg.Rotation == 180) flip = 0;
    const int stored = (img.isFlippedTB() ? 2 : 0) | (img.isFlippedLR() ? 1 : 0);
    if (cfg.Rotation == img.currentRotation() && flip == stored) return;
    img.rotate(cfg.Rotation, flip, false);
    if (mask) mask->rotate(cfg.Rotation, flip, false);
}

}  // namespace

bool Image2D::preProcess(const IMAGE_CFG& cfg, bool statusOn, bool noRotate, int page) {
    enableStatusMessages(statusOn);
    showStatusFormatted("Pre-processing image '%s'", m_fileName);
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "preProcess()");
        return false;
    }
    if (!isFloat()) toFloat();
    const bool secondPage = currentPage() == 2 || page == 2;
    if (cfg.BkgdSubtract) {
        Image2D background;
        if (_loadBackground(*this, cfg, page, background)) _applyBackground(*this, background, cfg);
    }
    Image2D maskImage;
    Image2D* mask = nullptr;
    if (cfg.MaskEnable && std::strlen(cfg.Mask) > 2) {
        std::string path = _getCleanFilePath(cfg.Mask);
        if (secondPage && cfg.Mask2Enable && std::strlen(cfg.Mask2) > 2) {
            const std::string second = _getCleanFilePath(cfg.Mask2);
            if (second.size() > 1) path = second;
        }
        if (maskImage.load(path.c_str(), 0)) {
            mask = &maskImage;
            if (cfg.MaskInvert) maskImage.negative(0);
        }
    }
    const IMAGE_TRANSFORMATION_CFG& t = cfg.transformation;
    if (t.Enable && (!t.SecondImageOnly || currentPage() == 2)) {
        const ImageType type = m_type;
        transform(t, false);
        if (!cfg.filters.UseFloat && type != IMAGE_FLOAT) convertToType(type);
        if (mask) {
            mask->transform(t, false);
            mask->convertToType(IMAGE_UINT8);
        }
    }
    if (!noRotate) _orient(*this, mask, cfg);
    const IMAGE_FILTER_CFG& f = cfg.filters;
    if (f.Invert) negative(0);
    if (cfg.MaskRandomize && mask) {
        randomizeMaskedPixels(*mask, SIZE2D{32, 32}, SIZE2D{16, 16});
        randomizeMaskedPixels(*mask, SIZE2D{21, 21}, SIZE2D{12, 12});
    }
    if (!_filterSteps(*this, f)) return false;
    if (f.UseFloat) toFloat();
    if (mask && !cfg.MaskRandomize) applyMask(*mask, false);
    if (cfg.Crop)
        crop(RECT2D{cfg.CropRect.left, cfg.CropRect.right, cfg.CropRect.top, cfg.CropRect.bottom});
    markChanged();
    return true;
}

bool Image2D::preProcessUsingMaskAndBackground(const IMAGE_CFG& cfg, Image2D* mask,
                                               Image2D* background, bool statusOn, bool noRotate,
                                               int) {
    enableStatusMessages(statusOn);
    showStatusFormatted("Pre-processing image '%s'", m_fileName);
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "preProcessUsingMaskAndBackground()");
        return false;
    }
    if (!isFloat()) toFloat();
    if (cfg.BkgdSubtract && background && !background->isNull()) {
        if (isSameSize(*background, false))
            _applyBackground(*this, *background, cfg);
        else
            DebugPrintExt(2, "Mismatch of image with background image");
    }
    if (mask && !mask->isNull() && isSameSize(*mask, false) && cfg.MaskInvert) mask->negative(0);
    const IMAGE_TRANSFORMATION_CFG& t = cfg.transformation;
    if (t.Enable && (!t.SecondImageOnly || currentPage() == 2)) {
        const ImageType type = m_type;
        transform(t, false);
        if (!cfg.filters.UseFloat && type != IMAGE_FLOAT) convertToType(type);
    }
    if (!noRotate) _orient(*this, nullptr, cfg);
    const IMAGE_FILTER_CFG& f = cfg.filters;
    if (f.Invert) negative(0);
    if (!_filterSteps(*this, f)) return false;
    if (f.UseFloat) toFloat();
    markChanged();
    return true;
}

bool Image2D::applyImageFilters(const IMAGE_FILTER_CFG& f, bool statusOn) {
    enableStatusMessages(statusOn);
    showStatusFormatted("Filtering image '%s'", m_fileName);
    if (isNull()) {
        m_error.handleError(PIVerror::IMAGE_IS_NULL, "applyImageFilters()");
        return false;
    }
    if (f.Median) medianFilter(f.MedianSize);
    if (f.MinMax) minMaxFilter(f.MinMaxKernel, 0);
    if (f.Invert) negative(0);
    if (f.HistEqual && !dynamicClipping(f.HistMin, f.HistMax)) return false;
    if (f.UseFloat) toFloat();
    if (f.Highpass) {
        if (f.HighpassUseGauss)
            highPassGauss(f.HighpassCutOff, 0.05f);
        else
            highPass(static_cast<int>(f.HighpassCutOff), 0);
    }
    // Integer images, and float ones on request, never keep negative values,
    // whether a high-pass ran or not.
    if (!isFloat() || f.HighpassClipNegative) clipLow(0);
    if (f.Threshold) {
        if (f.ThresholdBinarize)
            binarize(f.ThresholdLevel, false);
        else
            clipHigh(f.ThresholdLevel);
    }
    if (f.Lowpass) {
        if (f.LowpassUseGauss) {
            smoothGauss(f.LowpassCutOff, f.CenteredGauss, 0.05f);
        } else {
            showStatus("  Lowpass filtering with 3x3 Gauss kernel");
            convolve(0.075f, 0.85f, 0.075f, KERNEL_XY);
        }
    }
    markChanged();
    return true;
}
