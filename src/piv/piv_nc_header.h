// A look at the header of a classic NetCDF file before the netCDF
// libraries see it. The C library takes names of any length from a damaged
// header, and its C++ interface copies each into a buffer of NC_MAX_NAME
// bytes, so such a file writes over the stack of whoever asks for the name.
// Counts, names and sizes are checked here against the file instead.
#pragma once

#include <string>

namespace PIV {

// True when the file is no NetCDF file at all (the libraries decide on
// those) or a classic one whose header is sound: every name shorter than
// NC_MAX_NAME, every count within the file, at most one record dimension,
// the types known, and the fixed-size data of the variables at least half
// there. False with the reason otherwise, and for every netCDF-4 (HDF5)
// file, whose structure this check cannot vouch for.
bool NcHeaderIsSound(const char* path, std::string* why);

}  // namespace PIV
