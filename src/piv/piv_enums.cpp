#include "piv_enums.h"

#include <cctype>
#include <cstring>
#include <string>

namespace {

const char* const kVariableNames[] = {
    "flag",     "corr",    "snr",     "count",   "valid",  "time", "ix",     "iy",     "iz",
    "x",        "y",       "z",       "dx",      "dy",     "dz",   "mag",    "u",      "v",
    "w",        "velmag",  "sx",      "sy",      "sz",     "smag", "dudx",   "dudy",   "dudz",
    "dvdx",     "dvdy",    "dvdz",    "dwdx",    "dwdy",   "dwdz", "vort_x", "vort_y", "vort_z",
    "vort_mag", "shear_x", "shear_y", "shear_z", "nstrain"};
static_assert(sizeof(kVariableNames) / sizeof(kVariableNames[0]) == PIV::VAR_COUNT_OF_TYPES,
              "one name for every variable type");

// Names that reading a data file understands. Several entries of the list
// above (the positions, the magnitudes, "flag", "count", "valid") are
// deliberately absent: files name those by other means.
struct NameAlias {
    const char* name;
    int type;
};
const NameAlias kKnownNames[] = {
    {"corr", PIV::VAR_CORR},
    {"snr", PIV::VAR_SNR},
    {"time", PIV::VAR_TIME},
    {"dx", PIV::VAR_DX},
    {"dy", PIV::VAR_DY},
    {"dz", PIV::VAR_DZ},
    {"u", PIV::VAR_U},
    {"v", PIV::VAR_V},
    {"w", PIV::VAR_W},
    {"vx", PIV::VAR_U},
    {"vy", PIV::VAR_V},
    {"vz", PIV::VAR_W},
    {"sx", PIV::VAR_SX},
    {"sy", PIV::VAR_SY},
    {"sz", PIV::VAR_SZ},
    {"dudx", PIV::VAR_DUDX},
    {"dudy", PIV::VAR_DUDY},
    {"dudz", PIV::VAR_DUDZ},
    {"dvdx", PIV::VAR_DVDX},
    {"dvdy", PIV::VAR_DVDY},
    {"dvdz", PIV::VAR_DVDZ},
    {"dwdx", PIV::VAR_DWDX},
    {"dwdy", PIV::VAR_DWDY},
    {"dwdz", PIV::VAR_DWDZ},
    {"vort_x", PIV::VAR_VORT_X},
    {"vort_y", PIV::VAR_VORT_Y},
    {"vort_z", PIV::VAR_VORT_Z},
    {"vort", PIV::VAR_VORT_Z},
    {"shear_x", PIV::VAR_SHEAR_X},
    {"shear_y", PIV::VAR_SHEAR_Y},
    {"shear_z", PIV::VAR_SHEAR_Z},
    {"shear_xy", PIV::VAR_SHEAR_Z},
    {"shear", PIV::VAR_SHEAR_Z},
    {"nstrain", PIV::VAR_NSTRAIN},
};

}  // namespace

PIV::AnalysisMode PIV::ToAnalysisMode(int value) {
    if (value == ANALYSIS_AUTO_CORRELATION || value == ANALYSIS_SPECKLE)
        return static_cast<AnalysisMode>(value);
    return ANALYSIS_CROSS_CORRELATION;
}

int PIV::DataTypeOfAnalysisMode(int mode) {
    return ToAnalysisMode(mode) == ANALYSIS_SPECKLE ? 4096 : 2048;
}

const char* PIV::GetVariableNameFromType(int type) {
    if (type < 0 || type >= VAR_COUNT_OF_TYPES) return "";
    return kVariableNames[type];
}

int PIV::GetVariableTypeFromName(const char* name) {
    if (!name) return -1;
    std::string lower(name);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const NameAlias& alias : kKnownNames)
        if (lower == alias.name) return alias.type;
    return -1;
}
