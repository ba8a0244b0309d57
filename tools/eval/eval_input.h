// Which frames kelvane-eval correlates, and why a file it was given cannot
// serve: said before anything is loaded, in words a user can act on.
#pragma once

#include <string>

#include "eval_options.h"

namespace eval_tool {

// One frame: a whole file (frame 0), or frame `frame` (from 1) of a file
// that holds several.
struct FrameRef {
    std::string path;
    int frame = 0;
    // The path, with " (frame N)" for a frame of a multi-frame file.
    std::string label() const;
};

// The pair for the user: "run.im7 (frames 1,2)" for two frames of one file,
// else "run0001a.tif + run0001b.tif".
std::string PairLabel(const FrameRef& a, const FrameRef& b);

// Why `path` cannot be read as an image ("no such file", "a folder, not an
// image", "a PNG image: the tool reads ..."); empty when it looks readable.
std::string UnreadableImage(const std::string& path);

// Why a file cannot be written at `path` (its folder missing or read-only,
// with the system's reason); empty when it can.
std::string UnwritablePath(const std::string& path);
// The same for a folder that is to hold results.
std::string UnwritableFolder(const std::string& folder);

// The two frames of the pair that starts at `first` (and `second`, when
// given): the frames of `--frames`, the two frames of a multi-frame file
// given alone, else the partner by the naming rules. False with the reason
// in `error`, always a usage error.
bool ResolvePair(const Options& options, const std::string& first, const std::string& second,
                 FrameRef& a, FrameRef& b, std::string& error);

}  // namespace eval_tool
