// PIV_Image2D: one frame of an evaluation. Besides its pixels it fetches its
// own mask and background (named in the IMAGE_CFG, looked up beside the
// frame, in an alternate directory or as a bare name) and runs background
// subtraction, pre-processing, dewarping, masking and cropping on load.
//
// A missing companion file is not a failure: the frame then loads without it.
#pragma once

#include <memory>
#include <string>

#include "image2d.h"
#include "image2d_map2d.h"
#include "piv_types.h"

class PIV3C_Parameters;

enum PIVimageIdentifier {
    PIV_IMAGE_A = 1,
    PIV_IMAGE_B = 2,
};

class PIV_Image2D : public Image2D {
public:
    explicit PIV_Image2D(PIVimageIdentifier id = PIV_IMAGE_A);
    ~PIV_Image2D() override;
    PIV_Image2D(const PIV_Image2D&) = delete;
    PIV_Image2D& operator=(const PIV_Image2D&) = delete;

    virtual void setWaitCursor(bool) {}

    PIVimageIdentifier imageId() const { return m_id; }

    // Loads the frame and its companions and runs the load steps in order:
    // mask and background, pre-processing, dewarping, masking, cropping.
    // With pcoMode the frame is the half of a double image given by its id.
    bool load(const char* path, bool pcoMode);
    bool loadMask();
    bool loadMask(const char* path, bool noRotate);
    bool loadBackground();
    // `path` if it exists, else its name (base, pair suffix, extension) in the
    // alternate directory, else the bare name; "" when none exists.
    std::string lookForFile(const char* path) const;
    bool requiresImagePreProcessing() const;
    // Clears the flags and the name and frees pixels, mask and scratch
    // image; the background stays for the next frame.
    void destroy();

    // Resample `image` in place through `map` onto the map's destination
    // size, as float; an integer source is clipped at 0 from below. Nothing
    // happens in stereo mode or on a null image.
    bool dewarpImage(Image2D& image, const MAPPING_FXN_2D& map, bool mask);
    // The same, making `maskImage` the mask of the pixels that see nothing.
    bool dewarpImageAndCreateMask(Image2D& image, const MAPPING_FXN_2D& map, Image2D& maskImage);

    bool isImageAvailable() const { return m_available; }
    bool isMaskAvailable() const { return m_available ? m_maskLoaded : m_maskLoadedAlone; }
    Image2D* imageMask() { return &m_mask; }
    const Image2D* imageMask() const { return &m_mask; }
    Image2D* background() { return &m_background; }

    void setStereoMode(bool on) { m_stereo = on; }
    bool isStereoMode() const { return m_stereo; }
    void setFlagImagePreProcess(bool on) { m_preProcess = on; }
    bool imagePreProcess() const { return m_preProcess; }
    void setPCOMode(bool on) {
        m_pcoMode = on;
        m_cfg.SplitPCO = on;
    }
    bool isPCOMode() const { return m_pcoMode; }
    // The frame came out of a double image.
    bool isSplitPCO() const { return m_split; }

    void setImageCfg(const IMAGE_CFG& cfg) { m_cfg = cfg; }
    const IMAGE_CFG& imageCfg() const { return m_cfg; }
    void setStereoCfg(PIV3C_Parameters* params, int view) {
        m_stereoParams = params;
        m_stereoView = view;
    }
    void setPivConvertCfg(const PIVCONVERT_CFG& cfg) { m_convert = cfg; }
    const PIVCONVERT_CFG& pivConvertCfg() const { return m_convert; }
    void setInterpolationMethod(int method, int degree) {
        m_mapper.setInterpolationMethod(method, degree);
    }

    const char* name() const { return m_name; }
    const char* originalName() const { return m_originalName; }
    void setName(const char* path);
    void setAltDir(const char* dir);
    const char* altDir() const { return m_altDir; }

private:
    bool resampleInPlace(Image2D& image, const MAPPING_FXN_2D& map, bool mask);

    PIVimageIdentifier m_id;
    bool m_stereo = false;
    bool m_preProcess = true;
    bool m_available = false;
    bool m_pcoMode = false;
    bool m_split = false;
    bool m_maskLoaded = false;       // by load()
    bool m_maskLoadedAlone = false;  // by loadMask()
    bool m_backgroundLoaded = false;
    Image2D m_scratch, m_mask, m_background;
    IMAGE_CFG m_cfg;
    PIV3C_Parameters* m_stereoParams = nullptr;
    int m_stereoView = 0;
    Image2D_Map2D m_mapper;
    PIVCONVERT_CFG m_convert;
    char m_name[2048];
    char m_originalName[2048];
    char m_altDir[2048];
};
