#include "service/version_record.h"

// Whole in the executable, also what no code reads: support looks it up there.
__attribute__((used)) constexpr VersionRecord kVersionRecord{
    "2024/04/16-15:56",
    "/usr/sbin/mirl",
    "-",
    "Tarnhollow Agentless Service Daemon",
    "10.70-06",
    "Kelmora",
    "mirl",
    "Tarnhollow Linux Agents",
    "Copyright (C) 2024 Kelmora. All rights reserved.",
};
