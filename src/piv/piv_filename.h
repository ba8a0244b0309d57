// Path functions of the library and PIVFileName, the analysis of one image
// file name into directory, stub, frame number, pair suffix and extension.
//
// The functions that return `const char*` hand out a buffer of the calling
// thread that its next call overwrites: a worker naming files never sees
// another thread's name, but a caller keeps a copy before it calls again.
// On bad input they return "", never null.
#pragma once

#include <string>

namespace PIV {

// The part behind the last slash or backslash, as a pointer into `path`; ""
// for a null path or one of 2048 characters or more.
const char* GetFileNameFromPath(const char* path);
// The file name up to its last dot (the whole name when it has none).
const char* GetBaseNameFromPath(const char* path);
// The same, with the pair suffix ("_a", "b", "_3c" ...) stripped.
const char* GetCleanBaseNameFromPath(const char* path);
// The text behind the last dot of the file name, without the dot; "" if none.
const char* GetExtensionFromPath(const char* path);
// Everything up to and including the last slash. A path whose last slash is
// missing or stands at position 0 gives the current directory.
const char* GetDirectoryFromPath(const char* path);
// The current directory with slashes only and a final slash.
const char* GetCurrentDir();
// `path` with its extension replaced by `extension` (a leading dot is
// skipped); a file name without a dot gets ".extension" added.
const char* CreateFileName(const char* path, const char* extension);
// Kept as it always worked: the name is built from the path of the first
// call only, and every later call strips and re-extends the previous result,
// whatever path it is given. "First" counts per thread.
const char* CreateCleanFileName(const char* path, const char* extension);

bool CheckFileExistence(const char* path);
bool CheckDirectoryExistence(const char* path);
// True if the directory exists or could be made (mode 0775).
bool MakeDirectory(const char* path);

void SetDefaultParFile(const char* path);
const char* GetDefaultParFile();
bool UseDefaultParFile();

// The same name with the frame number moved by `increment`; "" when the
// file name has no digits just before its extension. Leading digits stay as
// they are, so "img100.tif" - 1 gives "img199.tif".
const char* GetNextFileInSequence(const char* path, int increment);
// The name of the second frame of a pair by the naming rules: .ima/.imb/.imc,
// a trailing "a"/"A" before the dot, otherwise the next file `separation`
// further on in the sequence.
const char* GetSecondImageName(const char* path, int separation);

// The content bits of a NetCDF file OR 3, otherwise the image format.
int FileContent(const char* path);

// The pair suffix of a base name of at least 3 characters: its length (0 for
// none) and its partner ("" for the "_3c" forms).
int PairSuffixLength(const std::string& baseName, std::string* partner = nullptr);

}  // namespace PIV

class PIVFileName {
public:
    PIVFileName() = default;
    explicit PIVFileName(const char* path) { analyse(path); }

    void analyse(const char* path);

    const std::string& fullPath() const { return m_fullPath; }
    const std::string& stub() const { return m_stub; }
    const std::string& baseName() const { return m_baseName; }
    const std::string& numberText() const { return m_numberText; }
    const std::string& extension() const { return m_extension; }
    const std::string& suffix() const { return m_suffix; }
    const std::string& partnerSuffix() const { return m_partnerSuffix; }
    const std::string& directory() const { return m_directory; }
    int digits() const { return m_digits; }
    int number() const { return m_number; }
    bool hasNumber() const { return m_hasNumber; }

private:
    std::string m_fullPath, m_stub, m_baseName, m_numberText, m_extension, m_suffix,
        m_partnerSuffix, m_directory;
    int m_digits = 0;
    int m_number = 0;
    bool m_hasNumber = false;
};
