// Process-wide helpers of the library: threads, the software's name, timing,
// sorting and small conversions.
#pragma once

#include <string>

namespace PIV {

// Threads of an evaluation: between 1 and MaxThreadsPossible(). A request
// below 1 or above what the runtime offers takes all of them.
int MaxThreads();
void SetMaxThreads(int n);
int MaxThreadsPossible();

// For a program that evaluates pair after pair: freed frames and fields, tens
// of megabytes each, stay in the process heap and serve the next pair,
// instead of going back to the system and coming again as fresh pages, one
// page fault each. Returns false where the C library has no such setting.
bool KeepFreedFramesInHeap();

// The local time as ctime() gives it, without its newline: the form of
// the "creation_date" attribute of our files.
std::string CreationDate();

// The machine's physical memory in bytes; the largest value when unknown.
unsigned long long PhysicalMemoryBytes();

// The name of the running software, e.g. "SODREL Kelvane Module - kelvane2c".
// With a non-null name it is stored (quotes removed, backslashes made
// slashes, the maker's prefix added); the stored name is returned.
const char* SoftwareName(const char* name = nullptr);

// Seconds since the last reset, on a millisecond clock.
double GetElapsedTime(bool reset);

// Sorts ascending in place.
void HeapSort(float* values, int n);
// Fills index[0..n) so that values[index[i]] ascends; values stay as they are.
void IndexSort(const float* values, int* index, int n);

// The nearest of 1, 2, 2.5, 5 times a power of ten, with the sign of `value`;
// used for scale bars and axis steps.
float CreateNiceFloatValue(float value);

bool IsSystemBigEndian();
// Turns every backslash of a path into a slash, in place. Returns `path`.
char* ReplaceBackslashes(char* path);

const char* LibraryVersion();      // "3.6.0.a"
const char* LibraryVersionLine();  // "LIBTORVO Version: ...  (Build: date, time)"

}  // namespace PIV
