// The plot configuration as an ASCII parameter file. One function serves
// both directions, so the keys written and the keys looked up stay the same.
#include "asciiparfile.h"
#include "piv_messages.h"
#include "piv_params_io.h"
#include "piv_plot.h"

using namespace PIVPLOT;

namespace {

void _group(ASCIIParFile* f, const char* prefix, const char* comment) {
    if (comment && f->writeMode()) f->addComment(comment);
    f->beginGroup(prefix);
}

void _text(ASCIIParFile* f, const char* key, char* text) {
    f->serializeString(key, text, TextLength);
}

void _serializeLUT(ASCIIParFile* f, LUT_CFG* c, const char* comment) {
    _group(f, "LUT_", comment);
    f->serialize("Show", &c->Show);
    f->serialize("PalLength", &c->PalLength);
    f->serialize("Index", &c->Index);
    f->serialize("ValueMin", &c->ValueMin);
    f->serialize("ValueMax", &c->ValueMax);
    f->serialize("ValueIncr", &c->ValueIncr);
    f->serialize("UseDiscreteLevels", &c->UseDiscreteLevels);
    f->serialize("Levels", &c->Levels);
    f->serialize("Reversed", &c->Reversed);
    f->serialize("Wrap", &c->Wrap);
    f->serialize("PosX", &c->PosX);
    f->serialize("PosY", &c->PosY);
    f->serialize("Orientation", &c->Orientation);
    f->serialize("Frame", &c->Frame);
    f->serialize("FillBkgd", &c->FillBkgd);
    f->serialize("Color", &c->Color);
    f->serialize("ColorBkgd", &c->ColorBkgd);
    f->serialize("Length", &c->Length);
    f->serialize("Width", &c->Width);
    f->serialize("LineWidth", &c->LineWidth);
    f->serialize("ShowTitle", &c->ShowTitle);
    f->serialize("ShowLabels", &c->ShowLabels);
    f->serialize("MinorTicks", &c->MinorTicks);
    f->serialize("MinorTicksShow", &c->MinorTicksShow);
    f->serialize("MinorTicksLabelShow", &c->MinorTicksLabelShow);
    f->serialize("MinorTicksLabelSkip", &c->MinorTicksLabelSkip);
    f->endGroup();
}

void _serializeOpacity(ASCIIParFile* f, OPACITY_CFG* c, const char* comment) {
    _group(f, "Opacity_", comment);
    f->serialize("Mode", &c->Mode);
    f->serialize("Opacity", &c->Opacity);
    f->serialize("ColorTrans", &c->ColorTrans);
    f->serialize("ColorTransEnable", &c->ColorTransEnable);
    f->endGroup();
}

void _serializeAnnotation(ASCIIParFile* f, ANNOTATION_CFG* c, const char* prefix,
                          const char* comment) {
    _group(f, prefix, comment);
    f->serialize("Show", &c->Show);
    _text(f, "Text", c->Text);
    f->serialize("Size", &c->Size);
    f->serialize("PosX", &c->PosX);
    f->serialize("PosY", &c->PosY);
    f->endGroup();
}

void _serializeAxis(ASCIIParFile* f, AXIS_CFG* c, const char* prefix) {
    _group(f, prefix, nullptr);
    f->serialize("Show", &c->Show);
    f->serialize("UsePhysUnit", &c->UsePhysUnit);
    f->serialize("ShowTitle", &c->ShowTitle);
    _text(f, "Title", c->Title);
    _text(f, "PhysTitle", c->PhysTitle);
    f->serialize("TitleSize", &c->TitleSize);
    f->serialize("LabelSize", &c->LabelSize);
    f->serialize("Skip", &c->Skip);
    f->serialize("MinorTicks", &c->MinorTicks);
    f->serialize("MinorTickSize", &c->MinorTickSize);
    f->serialize("MajorTickSize", &c->MajorTickSize);
    f->serialize("ShowLabels", &c->ShowLabels);
    f->serialize("PixAnchor", &c->PixAnchor);
    f->serialize("PixIncr", &c->PixIncr);
    f->serialize("PhysAnchor", &c->PhysAnchor);
    f->serialize("PhysIncr", &c->PhysIncr);
    f->serialize("LineWidth", &c->LineWidth);
    f->serialize("Transparency", &c->Transparency);
    f->endGroup();
}

void _serializeVector(ASCIIParFile* f, VECTOR_CFG* c) {
    _group(f, "Vector_", "[---- Vector plotting parameters ----]");
    f->serialize("Show", &c->Show);
    f->serialize("ColorCode", &c->ColorCode);
    f->serialize("MaxVector", &c->MaxVector);
    f->serialize("MinColor", &c->MinColor);
    f->serialize("MaxColor", &c->MaxColor);
    f->serialize("Stretch", &c->Stretch);
    f->serialize("SkipX", &c->SkipX);
    f->serialize("SkipY", &c->SkipY);
    f->serialize("OffsetType", &c->OffsetType);
    f->serialize("OffsetX", &c->OffsetX);
    f->serialize("OffsetY", &c->OffsetY);
    f->serialize("OutlierDisplay", &c->OutlierDisplay);
    f->serialize("HeadWidth", &c->HeadWidth);
    f->serialize("HeadLength", &c->HeadLength);
    f->serialize("FillArrowHead", &c->FillArrowHead);
    f->serialize("LineWidth", &c->LineWidth);
    f->serialize("MidPointAnchor", &c->MidPointAnchor);
    f->serialize("UniformHead", &c->UniformHead);
    f->serialize("UniformHeadSize", &c->UniformHeadSize);
    f->serialize("UniformVectors", &c->UniformVectors);
    f->serialize("UniformVectorLength", &c->UniformVectorLength);
    f->serialize("UniformVectorColor", &c->UniformVectorColor);
    _serializeLUT(f, &c->lut, nullptr);
    f->endGroup();
}

void _serializeRefVector(ASCIIParFile* f, REFVECTOR_CFG* c) {
    _group(f, "RefVector_", nullptr);
    f->serialize("Show", &c->Show);
    f->serialize("PosX", &c->PosX);
    f->serialize("PosY", &c->PosY);
    f->serialize("PixelShift", &c->PixelShift);
    f->serialize("Velocity", &c->Velocity);
    f->serialize("VelocityInPixels", &c->VelocityInPixels);
    f->serialize("PhysShift", &c->PhysShift);
    f->serialize("PhysShiftInPixels", &c->PhysShiftInPixels);
    _text(f, "ShiftUnit", c->ShiftUnit);
    _text(f, "VelUnit", c->VelUnit);
    f->serialize("DisplayMode", &c->DisplayMode);
    f->serialize("FontSize", &c->FontSize);
    f->serialize("Color", &c->Color);
    f->serialize("ColorBkgd", &c->ColorBkgd);
    f->serialize("Frame", &c->Frame);
    f->serialize("FillBkgd", &c->FillBkgd);
    f->endGroup();
}

void _serializeContour(ASCIIParFile* f, CONTOUR_CFG* c) {
    _group(f, "Contour_", nullptr);
    f->serialize("Show", &c->Show);
    f->serialize("Coding", &c->Coding);
    f->serialize("ConvertMode", &c->ConvertMode);
    f->serialize("FillBkgd", &c->FillBkgd);
    f->serialize("FillValue", &c->FillValue);
    _serializeLUT(f, &c->lut, nullptr);
    _serializeOpacity(f, &c->opacity, nullptr);
    f->endGroup();
}

void _serializeColors(ASCIIParFile* f, COLOR_CFG* c) {
    _group(f, "Colors_", nullptr);
    f->serialize("Bkgd", &c->Bkgd);
    f->serialize("Valid", &c->Valid);
    f->serialize("Outlier", &c->Outlier);
    f->serialize("Replaced", &c->Replaced);
    f->serialize("Interpolated", &c->Interpolated);
    f->serialize("Edited", &c->Edited);
    f->serialize("Mask", &c->Mask);
    f->serialize("Text", &c->Text);
    f->serialize("DataArea", &c->DataArea);
    f->endGroup();
}

}  // namespace

void _serializePlotCfg(PLOT_CFG* cfg, ASCIIParFile* f) {
    if (f->writeMode()) {
        f->addComment(PIV::ParameterFileMagic);
        f->addComment("[ PIV Plotting Parameters for Kelvane ]");
    }
    f->beginGroup("Plot_");
    f->serialize("StackingOrder", &cfg->StackingOrder);
    f->serialize("PlotPosX", &cfg->PlotPosX);
    f->serialize("PlotPosY", &cfg->PlotPosY);
    f->serialize("ShowOrigin", &cfg->ShowOrigin);
    _text(f, "Font", cfg->Font);
    f->endGroup();
    _serializeAnnotation(f, &cfg->logo, "Logo_", "[---- Annontation: Logo ----]");
    _serializeAnnotation(f, &cfg->background, "Background_",
                         "[---- Annontation: Background image ----]");
    _serializeAnnotation(f, &cfg->overlay, "Overlay_", "[---- Annontation: Overlay image ----]");
    _serializeAnnotation(f, &cfg->title, "Title_", "[---- Annontation: Title ----]");
    _serializeAnnotation(f, &cfg->subTitle, "SubTitle_", "[---- Annontation: SubTitle ----]");
    _group(f, "Image_", "[---- Image display parameters ----]");
    f->serialize("Show", &cfg->image.Show);
    f->serialize("PalLen", &cfg->image.PalLen);
    f->serialize("MaskOpacity", &cfg->image.MaskOpacity);
    f->endGroup();
    _serializeLUT(f, &cfg->image.lut, "[---- Image LUT plotting parameters ----]");
    _serializeOpacity(f, &cfg->image.opacity, "[---- Image opacity parameters ----]");
    _serializeVector(f, &cfg->vector);
    _serializeRefVector(f, &cfg->refVector);
    _serializeContour(f, &cfg->contour);
    _serializeAxis(f, &cfg->xAxis, "XAxis_");
    _serializeAxis(f, &cfg->yAxis, "YAxis_");
    _serializeColors(f, &cfg->colors);
}

bool PIVPLOT::LoadPivPlotConfigurationASCII(const char* fileName, PLOT_CFG* cfg) {
    if (!fileName || !cfg) return false;
    ASCIIParFile file(fileName, ASCIIParFile::READ);
    if (file.isEmpty()) {
        DebugPrint("PIVPLOT::LoadPivPlotConfigurationASCII() - nothing read from '%s'", fileName);
        return false;
    }
    _serializePlotCfg(cfg, &file);
    return true;
}

bool PIVPLOT::SavePivPlotConfigurationASCII(const char* fileName, const PLOT_CFG* cfg) {
    if (!fileName || !*fileName || !cfg) return false;
    PLOT_CFG copy = *cfg;
    ASCIIParFile file(fileName, ASCIIParFile::WRITE);
    _serializePlotCfg(&copy, &file);
    return file.close() != 0;
}
