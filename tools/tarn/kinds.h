// Which types operations take (tarn_kinds.h), for checks before calls and for readers.
#ifndef TARN_TOOLS_KINDS_H
#define TARN_TOOLS_KINDS_H

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <vector>

#include "image.h"
#include "tarn_kinds.h"

namespace tarn::tool {

std::span<const TarnKINDS> all_kinds();

// The samples that a command takes: those whose kind the operation's first array may have in such calls, and what the
// program brings into such a kind itself.
std::vector<Sample> samples_of(const std::string& operation, const std::string& calls = "",
                               const std::vector<Sample>& brought = {Sample::u16});

// "u8, s16, f32: 1, 3 or 3 of 4 channels; others: the process ends".
std::string kinds_text(const TarnKINDS& row);
// The row as an object: {"operation": ..., "forms": {"u8": [...]}, ...}.
nlohmann::ordered_json kinds_record(const TarnKINDS& row);

}  // namespace tarn::tool
#endif
