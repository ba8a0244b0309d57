// The plot configuration as an ASCII parameter file. One function serves
// both directions, so the keys written and the keys looked up stay the same.
#include "asciiparfile.h"
#include "piv_messages.h"
#include "piv_params_io.h"
#include "piv_plot.h"
#include "piv_plot_fields.h"

using namespace PIVPLOT;

namespace {

void _group(ASCIIParFile* f, const char* prefix, const char* comment) {
    if (comment && f->writeMode()) f->addComment(comment);
    f->beginGroup(prefix);
}

// Walks the shared field lists into the file.
struct FileFields {
    ASCIIParFile* f;
    template <class T>
    void field(const char* key, T* value) {
        f->serialize(key, value);
    }
    void text(const char* key, char* value, int size) { f->serializeString(key, value, size); }
};

template <class Record>
void _serializeGroup(ASCIIParFile* f, const char* prefix, const char* comment, Record* c,
                     void (*visit)(FileFields&, Record*)) {
    _group(f, prefix, comment);
    FileFields v{f};
    visit(v, c);
    f->endGroup();
}

void _serializeLUT(ASCIIParFile* f, LUT_CFG* c, const char* comment) {
    _serializeGroup(f, "LUT_", comment, c, &VisitLutFields<FileFields>);
}

void _serializeOpacity(ASCIIParFile* f, OPACITY_CFG* c, const char* comment) {
    _serializeGroup(f, "Opacity_", comment, c, &VisitOpacityFields<FileFields>);
}

}  // namespace

void _serializePlotCfg(PLOT_CFG* cfg, ASCIIParFile* f) {
    if (f->writeMode()) {
        f->addComment(PIV::ParameterFileMagic);
        f->addComment("[ PIV Plotting Parameters for Kelvane ]");
    }
    _serializeGroup(f, "Plot_", nullptr, cfg, &VisitPlotFields<FileFields>);
    const struct {
        ANNOTATION_CFG* cfg;
        const char* prefix;
        const char* comment;
    } annotations[] = {
        {&cfg->logo, "Logo_", "[---- Annontation: Logo ----]"},
        {&cfg->background, "Background_", "[---- Annontation: Background image ----]"},
        {&cfg->overlay, "Overlay_", "[---- Annontation: Overlay image ----]"},
        {&cfg->title, "Title_", "[---- Annontation: Title ----]"},
        {&cfg->subTitle, "SubTitle_", "[---- Annontation: SubTitle ----]"},
    };
    for (const auto& a : annotations)
        _serializeGroup(f, a.prefix, a.comment, a.cfg, &VisitAnnotationFields<FileFields>);
    _serializeGroup(f, "Image_", "[---- Image display parameters ----]", &cfg->image,
                    &VisitImageFields<FileFields>);
    _serializeLUT(f, &cfg->image.lut, "[---- Image LUT plotting parameters ----]");
    _serializeOpacity(f, &cfg->image.opacity, "[---- Image opacity parameters ----]");

    // The vector's and the contour's tables sit inside their own groups.
    _group(f, "Vector_", "[---- Vector plotting parameters ----]");
    FileFields v{f};
    VisitVectorFields(v, &cfg->vector);
    _serializeLUT(f, &cfg->vector.lut, nullptr);
    f->endGroup();
    _serializeGroup(f, "RefVector_", nullptr, &cfg->refVector, &VisitRefVectorFields<FileFields>);
    _group(f, "Contour_", nullptr);
    VisitContourFields(v, &cfg->contour);
    _serializeLUT(f, &cfg->contour.lut, nullptr);
    _serializeOpacity(f, &cfg->contour.opacity, nullptr);
    f->endGroup();

    _serializeGroup(f, "XAxis_", nullptr, &cfg->xAxis, &VisitAxisFields<FileFields>);
    _serializeGroup(f, "YAxis_", nullptr, &cfg->yAxis, &VisitAxisFields<FileFields>);
    _serializeGroup(f, "Colors_", nullptr, &cfg->colors, &VisitColorFields<FileFields>);
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
