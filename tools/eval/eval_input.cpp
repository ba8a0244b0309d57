#include "eval_input.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "image2d.h"
#include "image_format.h"
#include "image_types.h"
#include "piv_filename.h"
#include "tool_args.h"

namespace eval_tool {

namespace {

const char* kReadable =
    "the tool reads TIFF, BMP, PGM (P5), PCO (.b16) and LaVision (.im7, .imx, .img) images";

std::string SystemReason(int code) {
    return std::strerror(code);
}

bool IsLaVision(int format) {
    return format >= PIV::FORMAT_LAVISION_0 && format <= PIV::FORMAT_LAVISION_7;
}

// The folder part of a path: "." for a bare name.
std::string FolderOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool SameFile(const std::string& a, const std::string& b) {
    struct stat sa = {};
    struct stat sb = {};
    if (stat(a.c_str(), &sa) != 0 || stat(b.c_str(), &sb) != 0) return a == b;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

// What the headers of an image file say, read once per file.
struct FileFacts {
    int format = 0;
    // Frames as the tool pairs them: the pages of a TIFF, the frames of a
    // LaVision file, 2 for a PCO file (a double image, upper half first), 1
    // for any other image.
    int frames = 1;
};

FileFacts FactsOf(const std::string& path) {
    FileFacts f;
    int width = 0, height = 0, frames = 0;
    ImageType type = IMAGE_UNDEFINED;
    const bool known =
        Image2D::GetImageInfo(path.c_str(), &f.format, &type, &width, &height, &frames);
    f.frames = f.format == PIV::FORMAT_PCO ? 2 : known ? std::max(frames, 1) : 1;
    return f;
}

}  // namespace

std::string FrameRef::label() const {
    return frame > 0 ? path + " (frame " + std::to_string(frame) + ")" : path;
}

std::string PairLabel(const FrameRef& a, const FrameRef& b) {
    if (a.path == b.path && a.frame > 0)
        return a.path + " (frames " + std::to_string(a.frame) + "," + std::to_string(b.frame) + ")";
    return a.label() + " + " + b.label();
}

std::string UnreadableImage(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return SystemReason(errno);
    if (S_ISDIR(st.st_mode)) return "a folder, not an image";
    if (S_ISFIFO(st.st_mode)) return "a pipe, not an image file";
    if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) return "a device, not an image file";
    if (S_ISSOCK(st.st_mode)) return "a socket, not an image file";
    if (access(path.c_str(), R_OK) != 0) return SystemReason(errno);
    if (st.st_size == 0) return "an empty file";

    unsigned char head[4] = {};
    if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
        const size_t n = std::fread(head, 1, sizeof(head), f);
        std::fclose(f);
        if (n < 3) return "too short to be an image (" + std::to_string(n) + " bytes)";
    } else {
        return SystemReason(errno);
    }
    if (head[0] == 'P' && std::strchr("1245", head[1]) && head[1] &&
        (head[2] == '\n' || head[2] == '\r'))
        return std::string("a PGM whose header starts P") + char(head[1]) +
               " and a line break: write it with a space after P" + char(head[1]);
    if (head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF)
        return std::string("a JPEG image, which is not supported: ") + kReadable;
    if (head[0] == 0x89 && head[1] == 'P' && head[2] == 'N' && head[3] == 'G')
        return std::string("a PNG image, which is not supported: ") + kReadable;

    const std::string ext = tool::Extension(path);
    if (ext == ".vc7" || ext == ".vec")
        return "a LaVision vector field file, not an image: give vector fields to kelvane-compare";
    switch (PIV::GetFileFormat(path.c_str())) {
        case PIV::FORMAT_NETCDF:
            return "a NetCDF data file, not an image (a parameter file goes with -p)";
        case PIV::FORMAT_TECPLOT:
            return "a Tecplot data file, not an image";
        case PIV::FORMAT_PARFILE:
            return "a parameter file, not an image: give it with -p";
        case PIV::FORMAT_JPEG:
        case PIV::FORMAT_PNG:
        case PIV::FORMAT_B32:
            return std::string("an image format that is not supported: ") + kReadable;
        case PIV::FORMAT_UNKNOWN:
            return std::string("not an image format the tool knows: ") + kReadable;
        default:
            return "";
    }
}

std::string UnwritableFolder(const std::string& folder) {
    struct stat st {};
    if (stat(folder.c_str(), &st) != 0) return "folder " + folder + ": " + SystemReason(errno);
    if (!S_ISDIR(st.st_mode)) return folder + " is not a folder";
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        return "folder " + folder + ": " + SystemReason(errno);
    return "";
}

std::string UnwritablePath(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return "a folder of that name exists";
    return UnwritableFolder(FolderOf(path));
}

bool ResolvePair(const Options& o, const std::string& first, const std::string& second, FrameRef& a,
                 FrameRef& b, std::string& error) {
    FileFacts facts[2];
    for (int i = 0; i < 2; i++) {
        const std::string& f = i ? second : first;
        if (f.empty()) continue;
        const std::string why = UnreadableImage(f);
        if (!why.empty()) return error = "cannot read " + f + ": " + why, false;
        facts[i] = FactsOf(f);
        // Its reader stacks the frames and halves the stack: beyond two
        // frames a half is not a frame.
        if (facts[i].frames > 2 && IsLaVision(facts[i].format))
            return error = "cannot read " + f + ": it holds " + std::to_string(facts[i].frames) +
                           " frames, and LaVision files are read with one or two",
                   false;
    }
    if (second.empty()) facts[1] = facts[0];
    if (o.frameA > 0) {
        const std::string& fileB = second.empty() ? first : second;
        a = FrameRef{first, o.frameA};
        b = FrameRef{fileB, o.frameB};
        if (SameFile(first, fileB) && o.frameA == o.frameB)
            return error = "--frames " + std::to_string(o.frameA) + "," + std::to_string(o.frameB) +
                           " pairs a frame with itself, which gives a field of zeros",
                   false;
        for (int i = 0; i < 2; i++) {
            const FrameRef& r = i ? b : a;
            const int n = facts[i].frames;
            if (r.frame > n)
                return error = "cannot read frame " + std::to_string(r.frame) + " of " + r.path +
                               ": the file holds " + std::to_string(n) +
                               (n == 1 ? " frame" : " frames"),
                       false;
        }
        return true;
    }
    if (!second.empty()) {
        if (SameFile(first, second))
            return error = first +
                           " is given as both FIRST and SECOND, which gives a field of "
                           "zeros: give --frames I,J to pair two frames of one file",
                   false;
        for (int i = 0; i < 2; i++)
            if (facts[i].frames > 1 && facts[i].format != PIV::FORMAT_PCO)
                return error = (i ? second : first) + " holds " + std::to_string(facts[i].frames) +
                               " frames: say which with --frames I,J",
                       false;
        a = FrameRef{first, 0};
        b = FrameRef{second, 0};
        return true;
    }
    // A PCO file given alone is a double image, unless a series asks for
    // partners by number.
    const bool pco = facts[0].format == PIV::FORMAT_PCO;
    if (facts[0].frames >= 2 && !(pco && o.separationGiven)) {
        a = FrameRef{first, 1};
        b = FrameRef{first, 2};
        return true;
    }
    const char* found = PIV::GetSecondImageName(first.c_str(), o.separation);
    const std::string tried = found ? found : "";
    if (tried.empty() || tried == first)
        return error = "no second frame can be named after " + first +
                       ": give SECOND, or --frames I,J for a file of several frames",
               false;
    const std::string why = UnreadableImage(tried);
    if (!why.empty())
        return error = "cannot read the second frame " + tried + " (named after " + first +
                       "): " + why + "; give SECOND, or --frames I,J for a file of several frames",
               false;
    a = FrameRef{first, 0};
    b = FrameRef{tried, 0};
    return true;
}

}  // namespace eval_tool
