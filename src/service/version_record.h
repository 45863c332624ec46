#pragma once

#include <cstdio>

inline constexpr const char* kServiceName = "zorn";  ///< name of the trace and identity at syslog
inline constexpr const char* kServiceTag = "ZORN";   ///< what the service's own lines begin with

/// What the program says of itself: in the version line of the log and to the smbus driver.
struct VersionRecord {
    const char* Built;        ///< "yyyy/mm/dd-hh:mm"
    const char* InstallPath;  ///< where the suite's start script expects the program
    const char* Milestone;    ///< "-" outside of test deliveries
    const char* Description;
    const char* Version;  ///< "major.minor-patch"
    const char* Vendor;
    const char* ShortName;  ///< the name in the version line, nowhere else
    const char* Product;
    const char* Copyright;  ///< for those who look into the file: nothing prints it
};

extern const VersionRecord kVersionRecord;

/// The parts of a version "major.minor-patch".
struct VersionNumber {
    unsigned Major = 0;
    unsigned Minor = 0;
    unsigned Patch = 0;
};

/// Reads "major.minor-patch" as far as it goes: what does not parse, and all behind it, is 0.
[[nodiscard]] inline VersionNumber ParseVersion(const char* text) {
    VersionNumber number;
    (void)sscanf(text, "%u.%u-%u", &number.Major, &number.Minor, &number.Patch);
    return number;
}
