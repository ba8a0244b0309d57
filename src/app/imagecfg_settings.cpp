#include "imagecfg_settings.h"

#include <QChar>

void registryIOImageFilters(MySettings& s, MySettings::AccessMode mode, IMAGE_FILTER_CFG& f) {
    s.serializeBool(mode, "UseFloat", &f.UseFloat);
    s.serializeBool(mode, "Negative", &f.Invert);
    s.serializeBool(mode, "HighPassEnable", &f.Highpass);
    s.serializeFloat(mode, "HighPassKernel", &f.HighpassCutOff);
    s.serializeBool(mode, "HighPassGauss", &f.HighpassUseGauss);
    s.serializeBool(mode, "HighPassClipZero", &f.HighpassClipNegative);
    s.serializeBool(mode, "MedianEnable", &f.Median);
    s.serializeInt(mode, "MedianKernel", &f.MedianSize);
    s.serializeBool(mode, "MinMaxEnable", &f.MinMax);
    s.serializeInt(mode, "MinMaxKernel", &f.MinMaxKernel);
    s.serializeBool(mode, "ThresholdEnable", &f.Threshold);
    s.serializeFloat(mode, "ThresholdValue", &f.ThresholdLevel);
    s.serializeBool(mode, "ThresholdBinarize", &f.ThresholdBinarize);
    s.serializeBool(mode, "LowPassEnable", &f.Lowpass);
    s.serializeFloat(mode, "LowPassKernel", &f.LowpassCutOff);
    s.serializeBool(mode, "LowPassGauss", &f.LowpassUseGauss);
    s.serializeBool(mode, "DynHistEnable", &f.HistEqual);
    s.serializeFloat(mode, "DynHistMin", &f.HistMin);
    s.serializeFloat(mode, "DynHistMax", &f.HistMax);
}

bool registryIOImageCfg(MySettings& s, int view, MySettings::AccessMode mode, IMAGE_CFG& cfg) {
    if (view < 0 || view > 3) return false;
    s.beginGroup(QStringLiteral("/Image/View%1").arg(QChar('A' + view)));
    s.serializeInt(mode, "Rotation", &cfg.Rotation);
    s.serializeInt(mode, "Flip", &cfg.Flip);
    s.serializeBool(mode, "SplitPCO", &cfg.SplitPCO);
    s.serializeInt(mode, "InterpolationMethod", &cfg.InterpolationMethod);
    s.serializeInt(mode, "InterpolationDegree", &cfg.InterpolationDegree);

    IMAGE_TRANSFORMATION_CFG& t = cfg.transformation;
    s.serializeBool(mode, "Transform/Enable", &t.Enable);
    s.serializeBool(mode, "Transform/TransformSecondImageOnly", &t.SecondImageOnly);
    s.serializeDouble(mode, "Transform/TranslateX", &t.TranslateX);
    s.serializeDouble(mode, "Transform/TranslateY", &t.TranslateY);
    s.serializeDouble(mode, "Transform/Rotate", &t.Rotate);
    s.serializeDouble(mode, "Transform/OriginX", &t.OriginX);
    s.serializeDouble(mode, "Transform/OriginY", &t.OriginY);
    s.serializeDouble(mode, "Transform/StretchX", &t.StretchX);
    s.serializeDouble(mode, "Transform/StretchY", &t.StretchY);
    s.serializeDouble(mode, "Transform/SkewX", &t.SkewX);
    s.serializeDouble(mode, "Transform/SkewY", &t.SkewY);

    IMAGE_FILTER_CFG& f = cfg.filters;
    s.beginGroup("Filters");
    registryIOImageFilters(s, mode, f);
    // Masks, backgrounds, crop and dewarping stand with the filters in the store.
    s.serializeBool(mode, "MaskInvert", &cfg.MaskInvert);
    s.serializeBool(mode, "MaskRandomize", &cfg.MaskRandomize);
    s.serializeBool(mode, "Mask1Enable", &cfg.MaskEnable);
    s.serializeCharString(mode, "Mask1File", cfg.Mask, int(sizeof cfg.Mask));
    s.serializeBool(mode, "Mask2Enable", &cfg.Mask2Enable);
    s.serializeCharString(mode, "Mask2File", cfg.Mask2, int(sizeof cfg.Mask2));
    s.serializeBool(mode, "Bkgd1Subtract", &cfg.BkgdSubtract);
    s.serializeCharString(mode, "Bkgd1File", cfg.Bkgd, int(sizeof cfg.Bkgd));
    s.serializeBool(mode, "Bkgd2Subtract", &cfg.Bkgd2Subtract);
    s.serializeCharString(mode, "Bkgd2File", cfg.Bkgd2, int(sizeof cfg.Bkgd2));
    s.serializeInt(mode, "BkgdSubtractMethod", &cfg.BkgdSubtractMethod);
    s.serializeFloat(mode, "BkgdSubtractScaleFactor", &cfg.BkgdSubtractScaleFactor);
    s.serializeBool(mode, "ROICropEnable", &cfg.Crop);
    s.serializeRect3D(mode, "ROIRect", &cfg.CropRect);
    s.serializeBool(mode, "DewarpEnable", &cfg.Dewarp);
    s.serializeBool(mode, "DewarpCalibrate", &cfg.DewarpCalibrate);
    s.serializeInt(mode, "DewarpView", &cfg.DewarpView);
    s.serializeCharString(mode, "DewarpFile", cfg.DewarpFile, int(sizeof cfg.DewarpFile));
    s.endGroup();
    s.endGroup();
    return true;
}
