// Reader of LaVision image files: IMX, IMG and VC7 files with a header of
// version 18 to 23, and IM7 files with the newer header and its pack types
// (uncompressed, the old packed form, Deflate, 12-bit). It works on plain
// buffers and knows nothing of Image2D.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

struct IMX_BUFFER_SCALE_TYPE {
    float factor;
    float offset;
    char description[16];
    char unit[16];
};

// Buffer formats of the header; only words and floats are images here.
enum {
    BUFFER_FORMAT_DOUBLE = -5,
    BUFFER_FORMAT_WORD = -4,
    BUFFER_FORMAT_FLOAT = -3,
    BUFFER_FORMAT_BYTE = -2,
};

struct IMX_BUFFER_TYPE {
    int32_t isFloat;
    int32_t nx, ny, nz, nf;
    int32_t totalLines;  // ny x nz x nf
    int32_t vectorGrid;
    int32_t format;
    // Owned, from malloc: nx x totalLines values of 2 bytes (format -4) or
    // of 4-byte floats.
    void* pixels;
    IMX_BUFFER_SCALE_TYPE scaleX, scaleY, scaleZ, scaleI;
};

// The texts behind the pixels: scales, comments, "name=value" settings,
// time and date.
class AttributeList {
public:
    void add(std::string key, std::string value) {
        m_items.emplace_back(std::move(key), std::move(value));
    }
    // The value of the first entry of that key; null if there is none.
    const std::string* find(const std::string& key) const;
    const std::vector<std::pair<std::string, std::string>>& items() const { return m_items; }

private:
    std::vector<std::pair<std::string, std::string>> m_items;
};

// Results of the readers.
enum {
    IMREAD_ERR_NO = 0,
    IMREAD_ERR_FILEOPEN = 1,
    IMREAD_ERR_HEADER = 2,
    IMREAD_ERR_FORMAT = 3,
    IMREAD_ERR_DATA = 4,
    IMREAD_ERR_MEMORY = 5,
};

// Both fill `buffer`, which the caller frees with DestroyBuffer whatever the
// result; `attributes` may be null. ReadIM7 hands files of the older header
// to ReadIMX. A header that declares more pixel data than its file can
// hold gives IMREAD_ERR_DATA before any buffer is made, one that declares
// more pixels, all frames and planes counted, than PIV::MaxImagePixels()
// gives IMREAD_ERR_MEMORY; `refusal`, if given, says what was declared
// against what the file holds or the limit.
int ReadIM7(const char* path, IMX_BUFFER_TYPE* buffer, AttributeList* attributes,
            std::string* refusal = nullptr);
int ReadIMX(const char* path, IMX_BUFFER_TYPE* buffer, AttributeList* attributes,
            std::string* refusal = nullptr);

// Sizes of a frame set; false when the block cannot be had. The scales get
// their defaults: factor 1, offset 0, unit "pixel" ("counts" for intensity).
bool CreateBuffer(IMX_BUFFER_TYPE* buffer, int nx, int ny, int nz, int nf, bool isFloat);
void DestroyBuffer(IMX_BUFFER_TYPE* buffer);
void SetBufferScale(IMX_BUFFER_SCALE_TYPE* scale, float factor, float offset,
                    const char* description, const char* unit);
// Address of line `line` (0 .. totalLines-1) and its size in bytes; null
// outside the buffer.
void* Buffer_GetRowAddrAndSize(IMX_BUFFER_TYPE* buffer, int line, uint64_t* bytes);

// Attribute records up to the end of the file, at most 127 of them.
int ReadImgExtHeader(std::FILE* file, AttributeList* attributes);
// "factor offset unit description"; each text keeps 15 characters.
void Scale_Read(const char* text, IMX_BUFFER_SCALE_TYPE* scale);

// The pixel readers by pack type: IMREAD_ERR_NO, _DATA or _MEMORY.
int SCPackUncompressed_Read(std::FILE* file, IMX_BUFFER_TYPE* buffer);
int SCPackOldIMX_Read(std::FILE* file, IMX_BUFFER_TYPE* buffer);
// `produced`, if given, gets the bytes the stream expanded to: a whole
// stream may hold less than the buffer, whose rest then stays 0.
int SCPackZlib_Read(std::FILE* file, IMX_BUFFER_TYPE* buffer, uint64_t* produced = nullptr);
int SCPack_ReadCompressed12bit(std::FILE* file, IMX_BUFFER_TYPE* buffer);
