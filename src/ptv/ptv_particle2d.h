// The particle images found in one frame, with the frame's size.
#pragma once

#include <vector>

#include "piv_error.h"
#include "ptv_types.h"

class PTV_Particle2D {
public:
    PTV_Particle2D() : m_width(0), m_height(0), m_error("PTV_Particle2D") {}

    // Takes n particles; false, the store left as it was, if there is no room.
    bool assign(const PARTICLE* particles, size_t n);
    size_t count() const { return m_particles.size(); }
    const PARTICLE* data() const { return m_particles.empty() ? nullptr : m_particles.data(); }
    const PARTICLE& operator[](size_t i) const { return m_particles[i]; }

    void setImageSize(int width, int height) {
        m_width = width;
        m_height = height;
    }
    int imageWidth() const { return m_width; }
    int imageHeight() const { return m_height; }

private:
    std::vector<PARTICLE> m_particles;
    int m_width, m_height;
    PIVerror m_error;
};
