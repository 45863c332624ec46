#pragma once

#include <cstddef>
#include <cstdint>

#include "service/version_record.h"

// The kernel driver behind /dev/pci/smbus: what it and the service tell each other in one ioctl.
// Both records are the driver's wire formats, little endian, for a 64-bit process; a text that
// fills its field has no terminator.

/// The request number: read and write, 8 bytes, type 's', number 0xFF.
inline constexpr uint32_t IOCTL_SMBUS_DRIVER_INFO = 0xC00873FF;

/// The argument of the ioctl.
struct SMBUS_IOCTL_BLOCK {
    uint32_t Version;            ///< 1
    uint32_t CmdNumber;          ///< 0xFF
    uint32_t SizeOfInOutBuffer;  ///< bytes of an SMBUS_DRIVER_INFO
    uint32_t Reserved0C;
    void* pInOutBuffer;  ///< the SMBUS_DRIVER_INFO
    uint32_t Success;    ///< from the driver
    uint32_t Reserved1C;
};

/// The buffer that the block points to. Fields not marked are the driver's answer.
struct SMBUS_DRIVER_INFO {
    uint32_t OSKernelVersionCode;
    uint8_t Reserved004[12];
    uint32_t smbus_VersionCode;  ///< the driver's version, coded as `RequestorVersion`
    uint32_t smbus_ArchMode;
    uint32_t smbus_ArchXEN;
    uint32_t smbus_ArchFacil;
    uint32_t RequestorVersion;  ///< to the driver: see `RequestorVersion()` below
    uint8_t Reserved024[12];
    uint8_t smbus_IsSmbiHwFound;
    uint8_t smbus_IsBapiHwFound;
    uint8_t smbus_IsGabiHwFound;
    uint8_t smbus_IsSmbusHwFound;
    uint8_t smbus_IsBusIoHwFound;
    uint8_t smbus_IsCpuErrHwFound;
    uint8_t smbus_IsCpuApicHwFound;
    uint8_t smbus_IsCpuInfoHwFound;
    uint8_t Reserved038[8];
    uint32_t smbus_MajorDeviceNumber;
    uint32_t smbus_IsKmpModule;
    uint8_t Reserved048[24];
    char RequestorName[32];  ///< to the driver: "ZORN"
    char smbus_Name[32];
    char smbus_SrcVersion[64];
    char smbus_SrcDate[64];
    char smbus_ObjDate[64];
    char smbus_OsArchitecture[32];
    char smbus_OsVersion[64];
    char smbus_CompilerVersion[128];
    char smbus_KernelVersion[160];
    char QX_SYSTEM[32];    ///< to the driver: the environment variable
    char QX_OS[128];       ///< to the driver: the environment variable
    char QX_NICKNAME[32];  ///< to the driver: the environment variable
    char smbus_ErrorReturnString[384];
};

static_assert(sizeof(SMBUS_IOCTL_BLOCK) == 32);
static_assert(offsetof(SMBUS_IOCTL_BLOCK, Version) == 0);
static_assert(offsetof(SMBUS_IOCTL_BLOCK, CmdNumber) == 4);
static_assert(offsetof(SMBUS_IOCTL_BLOCK, SizeOfInOutBuffer) == 8);
static_assert(offsetof(SMBUS_IOCTL_BLOCK, pInOutBuffer) == 16);
static_assert(offsetof(SMBUS_IOCTL_BLOCK, Success) == 24);

static_assert(sizeof(SMBUS_DRIVER_INFO) == 0x520);
static_assert(offsetof(SMBUS_DRIVER_INFO, OSKernelVersionCode) == 0x000);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_VersionCode) == 0x010);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_ArchMode) == 0x014);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_ArchXEN) == 0x018);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_ArchFacil) == 0x01C);
static_assert(offsetof(SMBUS_DRIVER_INFO, RequestorVersion) == 0x020);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsSmbiHwFound) == 0x030);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsBapiHwFound) == 0x031);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsGabiHwFound) == 0x032);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsSmbusHwFound) == 0x033);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsBusIoHwFound) == 0x034);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsCpuErrHwFound) == 0x035);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsCpuApicHwFound) == 0x036);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsCpuInfoHwFound) == 0x037);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_MajorDeviceNumber) == 0x040);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_IsKmpModule) == 0x044);
static_assert(offsetof(SMBUS_DRIVER_INFO, RequestorName) == 0x060);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_Name) == 0x080);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_SrcVersion) == 0x0A0);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_SrcDate) == 0x0E0);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_ObjDate) == 0x120);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_OsArchitecture) == 0x160);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_OsVersion) == 0x180);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_CompilerVersion) == 0x1C0);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_KernelVersion) == 0x240);
static_assert(offsetof(SMBUS_DRIVER_INFO, QX_SYSTEM) == 0x2E0);
static_assert(offsetof(SMBUS_DRIVER_INFO, QX_OS) == 0x300);
static_assert(offsetof(SMBUS_DRIVER_INFO, QX_NICKNAME) == 0x380);
static_assert(offsetof(SMBUS_DRIVER_INFO, smbus_ErrorReturnString) == 0x3A0);

/// The coding of a version for the driver: major, minor and patch from bit 16, 8 and 0 upward.
[[nodiscard]] constexpr uint32_t RequestorVersion(const VersionNumber& version) {
    return version.Major << 16 | version.Minor << 8 | version.Patch;
}

/// Introduces the service to the driver and writes what that says of itself into the trace: a
/// warning in any case if the driver is newer than the service, and its whole answer at level 2.
/// Without a driver, or if it refuses, one line at level 2 says why and one in any case that this
/// is no harm. Leaves no state and no open descriptor. For the main thread at the start: it reads
/// the environment.
void DiscoverSmbusDriverInfo();
