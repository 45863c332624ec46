#pragma once

#include <string_view>
#include <vector>

#include "zornctl/order/ordered_trace.h"

/// The pieces in the order in which they stand in the file.
[[nodiscard]] std::vector<zornctl::TracePiece> AsInFile(std::vector<zornctl::TracePiece> pieces);

/// Fails unless the pieces of a file are apart and in order, and the entries that they are split
/// into lose nothing of them but line ends and holes.
void CheckPieces(std::string_view file, const std::vector<zornctl::TracePiece>& pieces);
