// ASCIIParFile: a plain-text store of keys and values, one "KEY = VALUE,..."
// line each, with grouped key prefixes.
//
// The whole file lives in memory as a list of entries in line order, comments
// included, so a list that was read and is saved again keeps its comments.
// One object serves both directions: a serialising function makes the same
// calls whether the object reads or writes, and the access mode decides which
// way each value goes. That keeps the written order and the keys looked up on
// reading the same, by construction.
#pragma once

#include <cstdio>
#include <type_traits>

#include "piv_error.h"
#include "piv_types.h"

class ASCIIParFile {
public:
    enum AccessMode { READ = 0, WRITE = 1 };

    // What a line holds. On output only two things matter: comment or not,
    // string (quoted) or not.
    enum EntryType {
        TYPE_UNCLAIMED = -1,  // read from a file, not yet asked for by a typed call
        TYPE_COMMENT = 0,
        TYPE_BOOL = 1,
        TYPE_UCHAR = 2,
        TYPE_INT = 3,
        TYPE_UINT = 4,
        TYPE_FLOAT = 5,
        TYPE_DOUBLE = 6,
        TYPE_STRING = 7,
        TYPE_SIZE2D = 8,
        TYPE_SIZE3D = 9,
        TYPE_FSIZE2D = 10,
        TYPE_POINT2D = 11,
        TYPE_POINT3D = 12,
        TYPE_FPOINT2D = 13,
        TYPE_FPOINT3D = 14,
        TYPE_RECT2D = 15,
        TYPE_RECT3D = 16,
    };

    static constexpr int MaxValues = 10;     // values on one line
    static constexpr int MaxGroupDepth = 9;  // groups open at once
    static constexpr int TextSize = 2048;    // key, comment, value pool, group text
    static constexpr int LineSize = 1024;    // longest line read is one less
    static constexpr int ListStep = 128;     // entries allocated at first
    // Each line costs an entry of some 4 KB however short it is; a file of
    // more lines than this is no parameter file (four views with their
    // comments take some 2000) and is refused.
    static constexpr int MaxEntries = 4096;

    // Read mode parses the file at once; write mode only records the name.
    // An empty or null name in write mode means standard output. Null comment
    // characters mean "#[%".
    explicit ASCIIParFile(const char* fileName = nullptr, AccessMode mode = READ,
                          bool append = false, const char* commentChars = nullptr);
    ~ASCIIParFile();
    ASCIIParFile(const ASCIIParFile&) = delete;
    ASCIIParFile& operator=(const ASCIIParFile&) = delete;

    // Stores the name (null gives the empty name) and switches to write mode.
    int create(const char* fileName);

    // Group texts carry their own separator: "View0_", "PIV_" and the key
    // "Method" compose "View0_PIV_Method". 0 when the text is null or
    // MaxGroupDepth groups are open.
    int beginGroup(const char* text);
    int endGroup();

    // Write mode only: appends the text as a comment line.
    int addComment(const char* text);

    // Write mode appends an entry; read mode looks the key up and stores its
    // value. 1 on success, 0 when the key is null or not in the file. Numbers
    // that do not parse read as 0, numbers out of the field's range are
    // saturated, missing components of a compound read as 0.
    int serialize(const char* key, int* value);
    int serialize(const char* key, unsigned int* value);
    int serialize(const char* key, unsigned char* value);
    int serialize(const char* key, bool* value);
    int serialize(const char* key, float* value);
    int serialize(const char* key, double* value);
    int serialize(const char* key, SIZE2D* value);
    int serialize(const char* key, SIZE3D* value);
    int serialize(const char* key, FSIZE2D* value);
    int serialize(const char* key, POINT2D* value);
    int serialize(const char* key, POINT3D* value);
    int serialize(const char* key, FPOINT2D* value);
    int serialize(const char* key, FPOINT3D* value);
    // Written as left, top, width, height (front, depth); read back with
    // right = left + width and so on, so the edges always come back in order.
    int serialize(const char* key, RECT2D* value);
    int serialize(const char* key, RECT3D* value);

    // `size` includes the terminator and is capped at TextSize.
    int serializeString(const char* key, char* buffer, int size);

    // At most MaxValues values; reading stores as many as the line has, up to `count`.
    int serializeArray(const char* key, int* values, int count);
    int serializeArray(const char* key, float* values, int count);
    int serializeArray(const char* key, double* values, int count);

    // Several variables of one type on one line, e.g. an enable flag and its
    // value. A null pointer ends the list early. Variables beyond the values
    // of a short line keep what they held.
    template <typename T, typename... More>
    int serializeVals(const char* key, T* first, More*... more) {
        static_assert(sizeof...(More) < MaxValues, "at most ten values on a line");
        static_assert((std::is_same<T, More>::value && ...), "one type on a line");
        T* pointers[] = {first, more..., nullptr};
        return serializeValsList(key, pointers);
    }

    bool isEmpty() const { return m_count == 0; }
    // Write mode: the list could be allocated. Read mode: the file held an entry.
    bool isValid() const { return m_mode == WRITE ? m_capacity > 0 : m_count > 0; }
    bool readMode() const { return m_mode == READ; }
    bool writeMode() const { return m_mode == WRITE; }
    const char* fileName() const { return m_fileName; }
    int entryCount() const { return m_count; }

    // Write mode: saves the list (see saveList). Read mode: does nothing, 0.
    int close();
    // Every entry as a line of the file.
    int dumpList(std::FILE* stream) const;

    PIVerror& error() { return m_error; }

private:
    struct Entry;

    int readList(const char* fileName);
    // An empty name writes to standard output and closes it: the list is
    // then the whole of what the process has to say there.
    int saveList();

    bool append(const Entry& entry);
    bool grow();
    // The open groups joined, cut at TextSize-1 characters.
    void rebuildGroupName();
    // The variable name of `key` in the open groups.
    const char* compose(const char* key);
    Entry* find(const char* key);
    // Write: a new entry for the key's values. Read: the entry of the key,
    // claimed for `type`. Null when there is none.
    Entry* lookup(const char* key, int type);
    int writeValues(const char* key, int type, const char* const* texts, int count);

    template <typename T>
    int serializeValsList(const char* key, T* const* pointers);
    // With wholeLine, components the line lacks read as 0; without, they are left alone.
    template <typename T>
    int serializeNumbers(const char* key, int type, T* values, int count, bool wholeLine = true);
    template <typename T>
    int serializeRect(const char* key, int type, T* values, int count);

    PIVerror m_error;
    char m_groups[MaxGroupDepth + 1][TextSize];
    int m_depth;
    char m_groupName[TextSize];
    char m_varName[TextSize];
    char m_fileName[TextSize];
    char m_commentChars[32];
    Entry* m_list;
    int m_capacity;
    int m_count;
    AccessMode m_mode;
    bool m_append;
};
