// Enumerations of the evaluation and the names of the data variables.
#pragma once

namespace PIV {

enum AnalysisMode {
    ANALYSIS_CROSS_CORRELATION = 1,
    ANALYSIS_AUTO_CORRELATION = 2,
    ANALYSIS_SPECKLE = 3,
};
// Any value but 2 and 3 means cross-correlation.
AnalysisMode ToAnalysisMode(int value);
// The data type bits a field of this mode is marked with.
int DataTypeOfAnalysisMode(int mode);

enum EvalMethod { METHOD_SINGLE_PASS = 0, METHOD_MULTI_PASS = 1, METHOD_MULTI_GRID = 2 };

enum CorrelationMode {
    CORR_CROSS = 0,
    CORR_PHASE_ONLY = 1,
    CORR_MQD = 2,
    CORR_DIRECT_CROSS = 3,
    CORR_ERROR_FUNCTION = 4,
};

enum PeakFitMethod {
    PEAKFIT_GAUSS_3PT = 0,
    PEAKFIT_GAUSS_3X3 = 1,
    PEAKFIT_PARABOLIC = 2,
    PEAKFIT_CENTROID = 3,
    PEAKFIT_WHITTAKER = 4,
    PEAKFIT_NONLIN_GAUSS = 5,
    PEAKFIT_FIT_BLOB = 6,
    PEAKFIT_FIT_RECT = 7,
};

enum FFTWindowType {
    FFTWINDOW_NONE = 0,
    FFTWINDOW_TUKEY = 1,
    FFTWINDOW_BLACKMAN = 2,
    FFTWINDOW_HANN = 3,
    FFTWINDOW_HAMMING = 4,
    FFTWINDOW_COSINE = 5,
    FFTWINDOW_GAUSS = 6,
    FFTWINDOW_LFC1 = 7,
    FFTWINDOW_LFC2 = 8,
    FFTWINDOW_LFC3 = 9,
};

enum ImageDeformMode { DEFORM_DISABLED = 0, DEFORM_FINAL_PASS = 1, DEFORM_ALL_PASSES = 2 };

enum DataVariableType {
    VAR_FLAG = 0,
    VAR_CORR,
    VAR_SNR,
    VAR_COUNT,
    VAR_VALID,
    VAR_TIME,
    VAR_IX,
    VAR_IY,
    VAR_IZ,
    VAR_X,
    VAR_Y,
    VAR_Z,
    VAR_DX,
    VAR_DY,
    VAR_DZ,
    VAR_MAG,
    VAR_U,
    VAR_V,
    VAR_W,
    VAR_VELMAG,
    VAR_SX,
    VAR_SY,
    VAR_SZ,
    VAR_SMAG,
    VAR_DUDX,
    VAR_DUDY,
    VAR_DUDZ,
    VAR_DVDX,
    VAR_DVDY,
    VAR_DVDZ,
    VAR_DWDX,
    VAR_DWDY,
    VAR_DWDZ,
    VAR_VORT_X,
    VAR_VORT_Y,
    VAR_VORT_Z,
    VAR_VORT_MAG,
    VAR_SHEAR_X,
    VAR_SHEAR_Y,
    VAR_SHEAR_Z,
    VAR_NSTRAIN,
    VAR_COUNT_OF_TYPES
};

// "" for a value outside the list.
const char* GetVariableNameFromType(int type);
// -1 for a name it does not know; see the source for the accepted names.
int GetVariableTypeFromName(const char* name);

}  // namespace PIV
