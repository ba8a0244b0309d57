// The records of a parameter file as one bundle, random values for every
// field the file carries, and a field-by-field comparison of those fields.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "piv_types.h"

namespace par_test {

struct ParRecords {
    PIV_PARAMETERS params;
    IMAGE_CFG image;
    POSTPROCESS_CFG post;
};

// Random values within each field's range for every field a parameter file
// carries. Texts stay short enough for a line and hold no double quote;
// rectangles the file stores by extent get their edges in order; the window
// and step depths stay at 1 or more; length factors are positive.
void FillRandom(ParRecords& r, std::mt19937& rng);

// "name: expected X, got Y" for each carried field that differs. Floats and
// doubles may differ within the six significant digits a file keeps; the y
// and z length factors are compared as the file derives them.
std::vector<std::string> CarriedDifferences(const ParRecords& expected, const ParRecords& actual);

// The number of fields compared, so a test can tell the list is not empty.
int CarriedFieldCount();

}  // namespace par_test
