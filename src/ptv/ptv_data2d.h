// The tracks of one image pair: a pair record per particle of the first frame.
#pragma once

#include <string>
#include <vector>

#include "piv_error.h"
#include "ptv_types.h"

// A particle of the first frame, its partner in the second and what led to it.
struct PTV_PAIR {
    PARTICLE first, second;  // second.id -1: no partner
    float guideDx, guideDy;  // the PIV field at the first position, dy upwards
    float distance;          // partner from the expected position, pixels
    float dx, dy;            // tracked displacement, dy upwards; 0 without partner
    int32_t valid;           // partner closer than the valid radius to its expectation
};

class PTV_Data2D {
public:
    PTV_Data2D();

    // n empty records (first.id -1); false if they cannot be had.
    bool resize(size_t n);
    size_t size() const { return m_pairs.size(); }
    void setImageSize(int width, int height);
    int imageWidth() const { return m_width; }
    int imageHeight() const { return m_height; }
    void setImageFilePair(const char* first, const char* second);
    const std::string& firstImageFile() const { return m_file1; }
    const std::string& secondImageFile() const { return m_file2; }

    PTV_PAIR* pairData(size_t index);
    const PTV_PAIR* pairData(size_t index) const;

    // Turns partners into displacements and marks the pairs within
    // `validRadius` valid; returns the number of valid pairs.
    int postProcess(double validRadius);
    int validCount() const { return m_valid; }
    // Records holding a first-frame particle.
    int particleCount() const;

    // A '#' header naming the columns, then one line per first-frame particle:
    // x y dx dy guide_dx guide_dy distance partner valid.
    bool saveASCII(const char* fileName) const;
    const PIVerror& error() const { return m_error; }

private:
    std::vector<PTV_PAIR> m_pairs;
    int m_width, m_height, m_valid;
    std::string m_file1, m_file2;
    mutable PIVerror m_error;
};
