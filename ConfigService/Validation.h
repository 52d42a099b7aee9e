// The rules for what a row may hold. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ConfigService/Schema.h"

namespace Orv {

inline constexpr u32 MaxTextBytes = 4096;

struct RowFinding {
    std::string field;
    std::string text;
};

// Why a text cannot be kept in any column; empty when it can. Control characters (those of ASCII and those of Unicode)
// and texts of more than MaxTextBytes are refused; bytes that are no UTF-8 are fine.
std::string WhyTextRefused(std::string_view text);

// Whether the text holds a control character.
bool HasControlCharacter(std::string_view text);

// Whether the audio feed service reads a parameter of that name, case included.
bool IsKnownParameter(std::string_view name);

// Looks at one whole row on its own. `errors` make it unusable, `warnings` are for the person who set it.
void CheckRow(const Table& table, const Row& row, std::vector<RowFinding>& errors, std::vector<RowFinding>& warnings);

}  // namespace Orv
