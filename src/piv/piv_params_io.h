// Settings records to and from parameter files (".par", "Kelvane parameter
// files (*.par)"): the key of every field and the file-level operations.
//
// Each record has one serialising function that runs the same calls in both
// directions; the mode of the ASCIIParFile decides whether fields are read or
// written. Reading leaves a field alone when its key is absent, so old files
// and files that carry only some keys keep working.
#pragma once

#include "piv_types.h"

class ASCIIParFile;

namespace PIV {

// The first line of every written file, also its magic.
constexpr const char* ParameterFileMagic = "#!PIV% 3.60";

// The serialising functions, for writers that nest these records in files of
// their own. `comments` writes the section and key comments; reading ignores
// it. 0 for a null argument.
int SerializePivParameters(ASCIIParFile* file, PIV_PARAMETERS* params, bool comments = true);
int SerializeImageCfg(ASCIIParFile* file, IMAGE_CFG* cfg, bool comments = true);
int SerializePostProcessCfg(ASCIIParFile* file, POSTPROCESS_CFG* cfg, bool comments = true);

// Writes all records of one view under the keys "View<view>_...". A null or
// empty name writes to standard output, and closes it. 0 for a name of
// MaxPathLength+1 characters or more or a null record; otherwise 1, also
// when the file could not be written (the file object reports that).
int SaveParametersASCII(const char* fileName, const PIV_PARAMETERS* params, const IMAGE_CFG* image,
                        const POSTPROCESS_CFG* post, int view = 0);
// Reads the keys of one view; keys of other views are not looked at. 0 when
// the file holds nothing (or cannot be opened), with the records untouched.
int ReadParametersASCII(const char* fileName, PIV_PARAMETERS* params, IMAGE_CFG* image,
                        POSTPROCESS_CFG* post, int view = 0);

// 1 when one of the first four lines is a comment naming both "piv" and
// "parameters"; 0 otherwise and for a missing file.
int IsParameterFile(const char* fileName);

// Only the image (or post-processing) record of a file; the rest is read into
// scratch records and dropped.
int ReadImageCfg(const char* fileName, IMAGE_CFG* cfg, int view = 0);
int ReadPostProcessCfg(const char* fileName, POSTPROCESS_CFG* cfg, int view = 0);

}  // namespace PIV
