// The run state of a window and its interaction mode.
#pragma once

#include <cstdint>

// Shared by pointer between the main window and the data object.
struct KelvaneState {
    enum RunState : int32_t { STARTING = 0, IDLE = 1, EVALUATING = 3 };

    int32_t runState = STARTING;

    void setProcessingFlag(bool on) { runState = on ? EVALUATING : IDLE; }
    bool isProcessingInProgress() const { return runState == EVALUATING; }
};

// Below MODE_ARRANGE_PLOT no scene object is being edited. 2 and 4 are never set.
enum KelvaneMode : int32_t {
    MODE_NONE = 0,
    MODE_CALIBRATION = 1,
    MODE_ROI_EDIT = 3,
    MODE_DATA = 5,
    MODE_ARRANGE_PLOT = 6,
    MODE_MEASURE_MOVE = 7,
    MODE_MEASURE_DELETE = 8,
    MODE_MEASURE_RESIZE = 9,
    MODE_MEASURE_ADJUST = 10,
    MODE_MEASURE_LINE = 11,
    MODE_MEASURE_POLYLINE = 12,
    MODE_MEASURE_RECTANGLE = 13,
    MODE_MEASURE_ELLIPSE = 14,
    MODE_MEASURE_POLYGON = 15,
};

inline bool IsSceneEditMode(KelvaneMode mode) {
    return mode >= MODE_ARRANGE_PLOT;
}
