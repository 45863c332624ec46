#include "service/smbus_driver.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/unique_fd.h"
#include "trace/trace.h"

namespace {

constexpr const char* kDevicePath = "/dev/pci/smbus";

/// Puts as much of `text` into a zeroed field as that takes: a text of its size has no terminator.
template <size_t Size>
void FillField(char (&field)[Size], const char* text) {
    memcpy(field, text, strnlen(text, Size));
}

template <size_t Size>
void FillFromEnvironment(char (&field)[Size], const char* name) {
    if (const char* const value = getenv(name)) FillField(field, value);
}

/// A field as a text with a terminator.
template <size_t Size>
struct FieldText {
    char text[Size + 1];
};

template <size_t Size>
FieldText<Size> Text(const char (&field)[Size]) {
    FieldText<Size> copy{};
    memcpy(copy.text, field, Size);
    return copy;
}

SMBUS_DRIVER_INFO IntroduceService() {
    SMBUS_DRIVER_INFO info{};
    info.RequestorVersion = RequestorVersion(ParseVersion(kVersionRecord.Version));
    FillField(info.RequestorName, kServiceTag);
    FillFromEnvironment(info.QX_SYSTEM, "QX_SYSTEM");
    FillFromEnvironment(info.QX_OS, "QX_OS");
    FillFromEnvironment(info.QX_NICKNAME, "QX_NICKNAME");
    return info;
}

/// Empty, with the reason in the trace, if there is no driver.
UniqueFd OpenDriver() {
    UniqueFd device{open(kDevicePath, O_RDWR | O_CLOEXEC)};
    if (!device) {
        TRACE(2, "%s-MAIN::DiscoverSmbusDriverInfo: cannot open %s (errno=%d: %s)\n", kServiceTag,
              kDevicePath, errno, strerror(errno));
    }
    return device;
}

/// False, with the reason in the trace, if the driver refuses.
bool AskDriver(UniqueFd device, SMBUS_IOCTL_BLOCK& block) {
    const int result = ioctl(device.Get(), IOCTL_SMBUS_DRIVER_INFO, &block);
    const int error = errno;
    device.Reset();
    if (result >= 0) return true;
    TRACE(2,
          "%s-MAIN::DiscoverSmbusDriverInfo: IOCTL_SMBUS_DRIVER_INFO (0x%08X) to %s failed "
          "(errno=%d: %s)\n",
          kServiceTag, IOCTL_SMBUS_DRIVER_INFO, kDevicePath, error, strerror(error));
    return false;
}

void WarnOfNewerDriver(const SMBUS_DRIVER_INFO& info) {
    if (info.RequestorVersion >= info.smbus_VersionCode) return;
    TRACE_ALWAYS(
        "%s-MAIN: WARNING: zorn version (0x%08X) is less than smbus driver version (0x%08X)\n",
        kServiceTag, info.RequestorVersion, info.smbus_VersionCode);
}

/// One line of the dump. False, and the dump ends, once the trace is found disabled.
__attribute__((format(printf, 1, 2))) bool Dump(const char* format, ...) {
    if (!Debug.IsEnabled()) return false;
    va_list args;
    va_start(args, format);
    Debug.TraceLevelArgs(2, format, args);
    va_end(args);
    return true;
}

bool DumpBlock(const SMBUS_IOCTL_BLOCK& block) {
    return Dump("%s-MAIN::DiscoverSmbusDriverInfo: evaluating IOCTL_SMBUS_DRIVER_INFO (0x%08X)\n",
                kServiceTag, IOCTL_SMBUS_DRIVER_INFO) &&
           Dump("Version                     : 0x%08X\n", block.Version) &&
           Dump("CmdNumber                   : 0x%08X\n", block.CmdNumber) &&
           Dump("SizeOfInOutBuffer           : 0x%08X\n", block.SizeOfInOutBuffer) &&
           // %p writes a 0x of its own; readers of the log know the line with both
           Dump("pInOutBuffer                : 0x%p\n", block.pInOutBuffer) &&
           Dump("Success                     : 0x%08X\n", block.Success);
}

bool DumpNumbers(const SMBUS_DRIVER_INFO& info) {
    return Dump("OSKernelVersionCode         : 0x%08X\n", info.OSKernelVersionCode) &&
           Dump("smbus_VersionCode           : 0x%08X\n", info.smbus_VersionCode) &&
           Dump("smbus_ArchMode              : 0x%08X\n", info.smbus_ArchMode) &&
           Dump("smbus_ArchXEN               : 0x%08X\n", info.smbus_ArchXEN) &&
           Dump("smbus_ArchFacil             : 0x%08X\n", info.smbus_ArchFacil) &&
           Dump("RequestorVersion            : 0x%08X\n", info.RequestorVersion) &&
           Dump("smbus_IsSmbiHwFound         : 0x%08X\n", info.smbus_IsSmbiHwFound) &&
           Dump("smbus_IsBapiHwFound         : 0x%08X\n", info.smbus_IsBapiHwFound) &&
           Dump("smbus_IsGabiHwFound         : 0x%08X\n", info.smbus_IsGabiHwFound) &&
           Dump("smbus_IsSmbusHwFound        : 0x%08X\n", info.smbus_IsSmbusHwFound) &&
           Dump("smbus_IsBusIoHwFound        : 0x%08X\n", info.smbus_IsBusIoHwFound) &&
           Dump("smbus_IsCpuErrHwFound       : 0x%08X\n", info.smbus_IsCpuErrHwFound) &&
           Dump("smbus_IsCpuApicHwFound      : 0x%08X\n", info.smbus_IsCpuApicHwFound) &&
           Dump("smbus_IsCpuInfoHwFound      : 0x%08X\n", info.smbus_IsCpuInfoHwFound) &&
           Dump("smbus_MajorDeviceNumber     : 0x%08X\n", info.smbus_MajorDeviceNumber) &&
           Dump("smbus_IsKmpModule           : 0x%08X\n", info.smbus_IsKmpModule);
}

bool DumpTexts(const SMBUS_DRIVER_INFO& info) {
    return Dump("RequestorName               : %s\n", Text(info.RequestorName).text) &&
           Dump("smbus_Name                  : %s\n", Text(info.smbus_Name).text) &&
           Dump("smbus_SrcVersion            : %s\n", Text(info.smbus_SrcVersion).text) &&
           Dump("smbus_SrcDate               : %s\n", Text(info.smbus_SrcDate).text) &&
           Dump("smbus_ObjDate               : %s\n", Text(info.smbus_ObjDate).text) &&
           Dump("smbus_OsArchitecture        : %s\n", Text(info.smbus_OsArchitecture).text) &&
           Dump("smbus_OsVersion             : %s\n", Text(info.smbus_OsVersion).text) &&
           Dump("smbus_CompilerVersion       : %s\n", Text(info.smbus_CompilerVersion).text) &&
           Dump("smbus_KernelVersion         : %s\n", Text(info.smbus_KernelVersion).text) &&
           Dump("QX_SYSTEM                   : %s\n", Text(info.QX_SYSTEM).text) &&
           Dump("QX_OS                       : %s\n", Text(info.QX_OS).text) &&
           Dump("QX_NICKNAME                 : %s\n", Text(info.QX_NICKNAME).text) &&
           Dump("smbus_ErrorReturnString     : %s\n", Text(info.smbus_ErrorReturnString).text);
}

}  // namespace

void DiscoverSmbusDriverInfo() {
    if (UniqueFd device = OpenDriver()) {
        SMBUS_DRIVER_INFO info = IntroduceService();
        SMBUS_IOCTL_BLOCK block{1, 0xFF, sizeof info, 0, &info, 0, 0};
        if (AskDriver(std::move(device), block)) {
            WarnOfNewerDriver(info);
            (void)(DumpBlock(block) && DumpNumbers(info) && DumpTexts(info));
            return;
        }
    }
    TRACE_ALWAYS(
        "%s-MAIN: INFO: smbus-driver is not available on this OS (But, don't worry about this, "
        "it might be OK on some OS systems!)\n",
        kServiceTag);
}
