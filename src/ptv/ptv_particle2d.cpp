#include "ptv_particle2d.h"

bool PTV_Particle2D::assign(const PARTICLE* particles, size_t n) {
    return PIV::Guarded(m_error, "assign()", [&] {
        if (!particles && n) throw PIVerror::INVALID_POINTER;
        std::vector<PARTICLE> copy(particles, particles + n);
        m_particles.swap(copy);
    });
}
