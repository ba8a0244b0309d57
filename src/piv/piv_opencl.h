// Where the correlation of a sample list runs: on the CPU (the default) or
// on an OpenCL device. A process-wide setting like PIV::SetMaxThreads; the
// records of an evaluation do not know it.
#pragma once

#include <string>
#include <vector>

namespace PIV {

// "cpu", "opencl" (the first device) or "opencl:N". False, with the reason
// in *why, for an unknown name or a device that is not there; the setting
// is then unchanged.
bool SetDevice(const std::string& name, std::string* why = nullptr);
// The current setting as SetDevice takes it.
std::string CurrentDevice();
bool DeviceIsOpenCL();
// One line per OpenCL device: "opencl:N  <platform>: <device>". Empty
// without a platform or in a build without OpenCL.
std::vector<std::string> ListDevices();

// Device memory one sample list may take; it sizes the batches of windows.
// A cap below a single window and the frames sends the list to the CPU.
void SetDeviceMemoryCap(unsigned long long bytes);
unsigned long long DeviceMemoryCap();

}  // namespace PIV
