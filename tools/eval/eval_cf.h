// The result of kelvane-eval as a CF-1.8 NetCDF file, for general tools
// (xarray, netCDF4, Panoply) beside the program's own layout: one plane on
// the coordinate axes x and y, y pointing upwards, with the two components,
// the status bits of every node and the correlation coefficient.
#pragma once

#include <string>

#include "piv_data2d.h"

namespace eval_tool {

struct CfInfo {
    std::string history;         // the command line
    std::string imageA, imageB;  // the two frames as named for the user
    bool calibrated = false;     // scale and time step known: mm and m/s
};

// Writes `field` (after post-processing) as a CF-1.8 file; beside the
// target and renamed when complete. False with the reason in `error`
// ("cannot write PATH: <reason>").
bool WriteCF(const PIV_Data2D& field, const CfInfo& info, const std::string& path,
             std::string& error);

}  // namespace eval_tool
