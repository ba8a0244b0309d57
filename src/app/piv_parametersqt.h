// The evaluation parameters in the application's settings store.
#pragma once

#include <QRect>

#include "mysettings.h"

class PIV_Parameters;

// Joins a PIV_Parameters and the store without owning either; both must
// outlive the adapter.
class PIV_ParametersQT {
public:
    PIV_ParametersQT(PIV_Parameters* params, MySettings* settings);

    // WRITE stores the parameters as they stand. READ mends what a hand-edited
    // store may hold, then hands the evaluation, conversion, validation,
    // differentiation and post-processing records to the parameters and
    // recomputes the conversion factors.
    void registryIO(MySettings::AccessMode mode);

    // The region of interest of the evaluation, edges sorted.
    QRect ROI() const;

private:
    PIV_Parameters* m_params;
    MySettings* m_settings;
};
