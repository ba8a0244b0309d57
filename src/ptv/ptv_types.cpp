#include "ptv_types.h"

#include <cstring>

#include "piv_record.h"

PTV_PARAMS::PTV_PARAMS() {
    PIV::ZeroRecord(*this);
    DetectThresh = 10.0;
    PixelConnectivity = 4;
    MaxRegionSize = 100;
    SearchRadius = 10.0;
    ValidRadius = 1.0;
    SortBoxWidth = SortBoxHeight = 64;
    imageCfg = IMAGE_CFG();
    std::strcpy(LabelImagesPrefix, "ptv_lbl_");
}
