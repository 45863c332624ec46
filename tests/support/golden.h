#pragma once

#include <string_view>

#include "support/where.h"

/// Compares `text` with the file `name` of the folder tests/, whole. A difference is a failure that
/// shows it line by line and tells how to take it over: run the test program with `--update` (or
/// with ZORN_UPDATE_GOLDEN=1 in the environment), which writes the file instead and leaves it to
/// the reviewer of the change.
///
///     ExpectGolden("system/pc-bare.log", MaskTrace(host.Read("/var/log/tolbrin/log.zorn")));
///
/// To be called outside of `FakeHost::Run`: on a fake host the source tree is read-only.
void ExpectGolden(std::string_view name, std::string_view text, Where where = Where::Here());

/// Whether the golden files are to be written instead of compared. Set by `--update`.
[[nodiscard]] bool UpdatesGoldens();
void UpdateGoldens();
