#pragma once

// What the waits of this folder take and give.

/// The limit of a wait that has none.
inline constexpr unsigned kWaitForever = 0xFFFFFFFF;

inline constexpr int kWaitSignalled = 0;
inline constexpr int kWaitTimedOut = 102;  ///< not an errno value: callers compare this number
inline constexpr int kWaitFailed = -1;
