// Physical units: the unit tables and the conversion of a vector from pixels
// to the grid, velocity and displacement units of a PIVCONVERT_CFG.
#pragma once

#include "piv_types.h"

namespace PIV {

int GridUnitCount();
int VelocityUnitCount();
int DisplacementUnitCount();

// Table lookups by name; an unknown name gives the fallback entry
// (grid "mm", velocity "m/s", displacement "um").
int GetGridUnitIndex(const char* name);
int GetVelocityUnitIndex(const char* name);
int GetDisplacementUnitIndex(const char* name);

// Names by index; an index outside the table gives the fallback name.
const char* GetGridUnitName(int index);
const char* GetVelocityUnitName(int index);
const char* GetDisplacementUnitName(int index);

// Factors in millimetres (grid, displacement) or millimetres per second (velocity).
double GetGridUnitFactor(int index);
double GetVelocityUnitFactor(int index);
double GetDisplacementUnitFactor(int index);

// table[to] / table[from] of the grid units.
double GetGridConversionFactor(int from, int to);

// Replaces unknown unit names by the fallbacks and sets velocityFactor and
// displacementFactor. True when a factor changed.
bool UpdateConversionFactors(PIVCONVERT_CFG* cfg);

// Fills x, y, z, u, v, w, sx, sy, sz of a vector from its pixel position and displacement.
void ConvertVector(PIV_VECTOR* vector, const PIVCONVERT_CFG& cfg);

}  // namespace PIV
