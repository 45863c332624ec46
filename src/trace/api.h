#pragma once

/// Marks what the executable exports: the operations that extension modules may call. Everything
/// else is hidden. The list of exported symbols is reviewed and tested
/// (src/service/exported_symbols.txt).
#define ZORN_API __attribute__((visibility("default")))
