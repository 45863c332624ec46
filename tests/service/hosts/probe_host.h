#pragma once

#include <array>

/// What a probe host has been through; it exports the record as `g_Probe`.
struct ProbeRecord {
    int queries;
    void* reserved;         ///< first argument of the last query
    int addRefs;            ///< calls of `SW_AddRef`
    int releases;           ///< calls of `SW_Release`
    int interfaceReleases;  ///< calls of `ISwitch::Release`
};
