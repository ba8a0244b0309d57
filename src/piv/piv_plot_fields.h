// The key of every field of the plot records, in file order. The plot file and
// the settings store both walk these lists, so a key spelt here is spelt the
// same in both, and a field added here reaches both.
//
// A visitor offers `field(key, T*)` for bool, int32_t, uint32_t (colours),
// float and double, and `text(key, char*, size)` for the fixed text buffers.
#pragma once

#include "piv_plot.h"

namespace PIVPLOT {

template <class V>
void VisitLutFields(V& v, LUT_CFG* c) {
    v.field("Show", &c->Show);
    v.field("PalLength", &c->PalLength);
    v.field("Index", &c->Index);
    v.field("ValueMin", &c->ValueMin);
    v.field("ValueMax", &c->ValueMax);
    v.field("ValueIncr", &c->ValueIncr);
    v.field("UseDiscreteLevels", &c->UseDiscreteLevels);
    v.field("Levels", &c->Levels);
    v.field("Reversed", &c->Reversed);
    v.field("Wrap", &c->Wrap);
    v.field("PosX", &c->PosX);
    v.field("PosY", &c->PosY);
    v.field("Orientation", &c->Orientation);
    v.field("Frame", &c->Frame);
    v.field("FillBkgd", &c->FillBkgd);
    v.field("Color", &c->Color);
    v.field("ColorBkgd", &c->ColorBkgd);
    v.field("Length", &c->Length);
    v.field("Width", &c->Width);
    v.field("LineWidth", &c->LineWidth);
    v.field("ShowTitle", &c->ShowTitle);
    v.field("ShowLabels", &c->ShowLabels);
    v.field("MinorTicks", &c->MinorTicks);
    v.field("MinorTicksShow", &c->MinorTicksShow);
    v.field("MinorTicksLabelShow", &c->MinorTicksLabelShow);
    v.field("MinorTicksLabelSkip", &c->MinorTicksLabelSkip);
}

template <class V>
void VisitOpacityFields(V& v, OPACITY_CFG* c) {
    v.field("Mode", &c->Mode);
    v.field("Opacity", &c->Opacity);
    v.field("ColorTrans", &c->ColorTrans);
    v.field("ColorTransEnable", &c->ColorTransEnable);
}

template <class V>
void VisitAnnotationFields(V& v, ANNOTATION_CFG* c) {
    v.field("Show", &c->Show);
    v.text("Text", c->Text, TextLength);
    v.field("Size", &c->Size);
    v.field("PosX", &c->PosX);
    v.field("PosY", &c->PosY);
}

template <class V>
void VisitAxisFields(V& v, AXIS_CFG* c) {
    v.field("Show", &c->Show);
    v.field("UsePhysUnit", &c->UsePhysUnit);
    v.field("ShowTitle", &c->ShowTitle);
    v.text("Title", c->Title, TextLength);
    v.text("PhysTitle", c->PhysTitle, TextLength);
    v.field("TitleSize", &c->TitleSize);
    v.field("LabelSize", &c->LabelSize);
    v.field("Skip", &c->Skip);
    v.field("MinorTicks", &c->MinorTicks);
    v.field("MinorTickSize", &c->MinorTickSize);
    v.field("MajorTickSize", &c->MajorTickSize);
    v.field("ShowLabels", &c->ShowLabels);
    v.field("PixAnchor", &c->PixAnchor);
    v.field("PixIncr", &c->PixIncr);
    v.field("PhysAnchor", &c->PhysAnchor);
    v.field("PhysIncr", &c->PhysIncr);
    v.field("LineWidth", &c->LineWidth);
    v.field("Transparency", &c->Transparency);
}

template <class V>
void VisitPlotFields(V& v, PLOT_CFG* c) {
    v.field("StackingOrder", &c->StackingOrder);
    v.field("PlotPosX", &c->PlotPosX);
    v.field("PlotPosY", &c->PlotPosY);
    v.field("ShowOrigin", &c->ShowOrigin);
    v.text("Font", c->Font, TextLength);
}

template <class V>
void VisitImageFields(V& v, BITMAP_CFG* c) {
    v.field("Show", &c->Show);
    v.field("PalLen", &c->PalLen);
    v.field("MaskOpacity", &c->MaskOpacity);
}

template <class V>
void VisitVectorFields(V& v, VECTOR_CFG* c) {
    v.field("Show", &c->Show);
    v.field("ColorCode", &c->ColorCode);
    v.field("MaxVector", &c->MaxVector);
    v.field("MinColor", &c->MinColor);
    v.field("MaxColor", &c->MaxColor);
    v.field("Stretch", &c->Stretch);
    v.field("SkipX", &c->SkipX);
    v.field("SkipY", &c->SkipY);
    v.field("OffsetType", &c->OffsetType);
    v.field("OffsetX", &c->OffsetX);
    v.field("OffsetY", &c->OffsetY);
    v.field("OutlierDisplay", &c->OutlierDisplay);
    v.field("HeadWidth", &c->HeadWidth);
    v.field("HeadLength", &c->HeadLength);
    v.field("FillArrowHead", &c->FillArrowHead);
    v.field("LineWidth", &c->LineWidth);
    v.field("MidPointAnchor", &c->MidPointAnchor);
    v.field("UniformHead", &c->UniformHead);
    v.field("UniformHeadSize", &c->UniformHeadSize);
    v.field("UniformVectors", &c->UniformVectors);
    v.field("UniformVectorLength", &c->UniformVectorLength);
    v.field("UniformVectorColor", &c->UniformVectorColor);
}

template <class V>
void VisitRefVectorFields(V& v, REFVECTOR_CFG* c) {
    v.field("Show", &c->Show);
    v.field("PosX", &c->PosX);
    v.field("PosY", &c->PosY);
    v.field("PixelShift", &c->PixelShift);
    v.field("Velocity", &c->Velocity);
    v.field("VelocityInPixels", &c->VelocityInPixels);
    v.field("PhysShift", &c->PhysShift);
    v.field("PhysShiftInPixels", &c->PhysShiftInPixels);
    v.text("ShiftUnit", c->ShiftUnit, TextLength);
    v.text("VelUnit", c->VelUnit, TextLength);
    v.field("DisplayMode", &c->DisplayMode);
    v.field("FontSize", &c->FontSize);
    v.field("Color", &c->Color);
    v.field("ColorBkgd", &c->ColorBkgd);
    v.field("Frame", &c->Frame);
    v.field("FillBkgd", &c->FillBkgd);
}

template <class V>
void VisitContourFields(V& v, CONTOUR_CFG* c) {
    v.field("Show", &c->Show);
    v.field("Coding", &c->Coding);
    v.field("ConvertMode", &c->ConvertMode);
    v.field("FillBkgd", &c->FillBkgd);
    v.field("FillValue", &c->FillValue);
}

template <class V>
void VisitColorFields(V& v, COLOR_CFG* c) {
    v.field("Bkgd", &c->Bkgd);
    v.field("Valid", &c->Valid);
    v.field("Outlier", &c->Outlier);
    v.field("Replaced", &c->Replaced);
    v.field("Interpolated", &c->Interpolated);
    v.field("Edited", &c->Edited);
    v.field("Mask", &c->Mask);
    v.field("Text", &c->Text);
    v.field("DataArea", &c->DataArea);
}

}  // namespace PIVPLOT
