#pragma once

#include <string_view>
#include <vector>

#include "zornctl/order/ordered_trace.h"

/// Fails unless the pieces of a file are apart and in order, and the entries that they are split
/// into lose nothing of them but line ends and holes.
void CheckPieces(std::string_view file, const std::vector<zornctl::TracePiece>& pieces);
