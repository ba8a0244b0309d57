#include "piv_units.h"

#include <cstring>

namespace {

struct UnitTable {
    const char* const* names;
    const double* factors;
    int count;
    int fallback;

    int index(const char* name) const {
        if (name)
            for (int i = 0; i < count; ++i)
                if (std::strcmp(name, names[i]) == 0) return i;
        return fallback;
    }
    int clamp(int i) const { return (i < 0 || i >= count) ? fallback : i; }
};

const char* const kGridNames[] = {"um", "mm", "cm", "m", "in", "ft"};
const double kGridFactors[] = {0.001, 1, 10, 1000, 25.4, 304.8};
const char* const kVelocityNames[] = {"m/s", "cm/s", "mm/s", "um/s", "km/h", "in/s", "ft/s", "mph"};
const double kVelocityFactors[] = {1000, 10, 1, 0.001, 277.7778, 25.4, 304.8, 446.667};
const char* const kDisplacementNames[] = {"m", "cm", "mm", "um", "km", "in", "ft", "mi"};
const double kDisplacementFactors[] = {1000, 10, 1, 0.001, 1000000, 25.4, 304.8, 1608000};

const UnitTable kGrid{kGridNames, kGridFactors, 6, 1};
const UnitTable kVelocity{kVelocityNames, kVelocityFactors, 8, 0};
const UnitTable kDisplacement{kDisplacementNames, kDisplacementFactors, 8, 3};

}  // namespace

int PIV::GridUnitCount() {
    return kGrid.count;
}
int PIV::VelocityUnitCount() {
    return kVelocity.count;
}
int PIV::DisplacementUnitCount() {
    return kDisplacement.count;
}

int PIV::GetGridUnitIndex(const char* name) {
    return kGrid.index(name);
}
int PIV::GetVelocityUnitIndex(const char* name) {
    return kVelocity.index(name);
}
int PIV::GetDisplacementUnitIndex(const char* name) {
    return kDisplacement.index(name);
}

const char* PIV::GetGridUnitName(int i) {
    return kGrid.names[kGrid.clamp(i)];
}
const char* PIV::GetVelocityUnitName(int i) {
    return kVelocity.names[kVelocity.clamp(i)];
}
const char* PIV::GetDisplacementUnitName(int i) {
    return kDisplacement.names[kDisplacement.clamp(i)];
}

double PIV::GetGridUnitFactor(int i) {
    return kGrid.factors[kGrid.clamp(i)];
}
double PIV::GetVelocityUnitFactor(int i) {
    return kVelocity.factors[kVelocity.clamp(i)];
}
double PIV::GetDisplacementUnitFactor(int i) {
    return kDisplacement.factors[kDisplacement.clamp(i)];
}

double PIV::GetGridConversionFactor(int from, int to) {
    return GetGridUnitFactor(to) / GetGridUnitFactor(from);
}

bool PIV::UpdateConversionFactors(PIVCONVERT_CFG* cfg) {
    if (!cfg) return false;
    int grid = kGrid.index(cfg->LengthConversionUnits);
    int velocity = kVelocity.index(cfg->VelocityUnits);
    int displacement = kDisplacement.index(cfg->DisplacementUnits);
    CopyText(cfg->LengthConversionUnits, kGrid.names[grid]);
    CopyText(cfg->VelocityUnits, kVelocity.names[velocity]);
    CopyText(cfg->DisplacementUnits, kDisplacement.names[displacement]);

    double gridFactor = kGrid.factors[grid];
    double velocityFactor = gridFactor / kVelocity.factors[velocity];
    double displacementFactor = gridFactor / kDisplacement.factors[displacement];
    bool changed =
        velocityFactor != cfg->velocityFactor || displacementFactor != cfg->displacementFactor;
    cfg->velocityFactor = velocityFactor;
    cfg->displacementFactor = displacementFactor;
    return changed;
}

void PIV::ConvertVector(PIV_VECTOR* v, const PIVCONVERT_CFG& cfg) {
    if (!v) return;
    const double magX = cfg.LengthConversion[0];
    const double magY = cfg.LengthConversion[1];
    const double magZ = cfg.LengthConversion[2];
    // The y axis of the physical frame points up, against the image rows.
    v->x = magX != 0.0 ? float((v->ix - cfg.ImageOrigin.x) / magX + cfg.PhysicalOrigin.x) : 0.0f;
    v->y = magY != 0.0 ? float((cfg.ImageOrigin.y - v->iy) / magY + cfg.PhysicalOrigin.y) : 0.0f;
    v->z = magZ != 0.0 ? float((v->iz - cfg.ImageOrigin.z) / magZ + cfg.PhysicalOrigin.z) : 0.0f;

    const double f = cfg.PulseDelay != 0.0 ? 1e6 * cfg.velocityFactor / cfg.PulseDelay : 0.0;
    auto scaled = [](double value, double factor, double mag) {
        return mag != 0.0 ? float(value * factor / mag) : 0.0f;
    };
    v->u = scaled(v->dx, f, magX);
    v->v = scaled(v->dy, f, magY);
    v->w = scaled(v->dz, f, magZ);
    v->sx = scaled(v->dx, cfg.displacementFactor, magX);
    v->sy = scaled(v->dy, cfg.displacementFactor, magY);
    v->sz = scaled(v->dz, cfg.displacementFactor, magZ);
}
