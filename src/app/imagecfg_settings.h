// The image handling of one camera view in the application's settings store.
#pragma once

#include "mysettings.h"
#include "piv_types.h"

// Reads or writes cfg under "/Image/View<letter>", view 0 being 'A'. A view
// outside 0 to 3 touches neither the store nor cfg and gives false.
bool registryIOImageCfg(MySettings& settings, int view, MySettings::AccessMode mode,
                        IMAGE_CFG& cfg);
// The filter block alone, under the settings' current group; the tracker
// keeps its own filters with the same keys.
void registryIOImageFilters(MySettings& settings, MySettings::AccessMode mode, IMAGE_FILTER_CFG& f);
