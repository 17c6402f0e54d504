#include "kinds.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarn::tool {
namespace {
constexpr const char* kKinds[] = {nullptr, "u8", "s16", "s32", "u32", "f32"};

std::vector<std::string> form_names(uint8_t forms) {
    constexpr struct {
        uint8_t form;
        const char* name;
    } kForms[] = {
        {TARN_OF_1, "1"}, {TARN_OF_2, "2 in pairs"}, {TARN_OF_3, "3"}, {TARN_OF_4, "4"}, {TARN_OF_4_LESS, "3 of 4"}};
    std::vector<std::string> names;
    for (const auto& [form, name] : kForms)
        if (forms & form) names.push_back(name);
    return names;
}

const char* other_name(int other) {
    constexpr const char* kNames[] = {"served",        "an error value",         "nothing is done",
                                      "as tarn::copy", "something else is done", "the process ends"};
    return kNames[other];
}

// "1, 3 or 4".
std::string listed(const std::vector<std::string>& words) {
    std::string text;
    for (size_t i = 0; i < words.size(); ++i) text += (!i ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return text;
}
}  // namespace

std::span<const TarnKINDS> all_kinds() {
    uint64_t count;
    const TarnKINDS* rows = TarnKINDStable(&count);
    return {rows, count};
}

std::vector<Sample> samples_of(const std::string& operation, const std::string& calls,
                               const std::vector<Sample>& brought) {
    std::vector<Sample> taken;
    for (const TarnKINDS& row : all_kinds()) {
        if (row.operation != operation || row.calls != calls) continue;
        for (const Sample s : {Sample::u8, Sample::u16, Sample::s16, Sample::s32, Sample::u32, Sample::f32}) {
            const bool served = s != Sample::u16 && row.forms[sample_type(s) >> 8 & 15];
            if (served || std::count(brought.begin(), brought.end(), s)) taken.push_back(s);
        }
        break;
    }
    return taken;
}

std::string kinds_text(const TarnKINDS& row) {
    std::string text;
    for (int kind = 1; kind < 6; ++kind) {
        const auto* const before = std::find(row.forms + 1, row.forms + kind, row.forms[kind]);
        if (!row.forms[kind] || before != row.forms + kind) continue;
        text += text.empty() ? "" : "; ";
        for (int same = kind; same < 6; ++same)
            if (row.forms[same] == row.forms[kind]) text += std::string(same == kind ? "" : ", ") + kKinds[same];
        text += ": " + listed(form_names(row.forms[kind])) + (row.forms[kind] == TARN_OF_1 ? " channel" : " channels");
    }
    if (row.other_kind == row.other_count) return text + "; others: " + other_name(row.other_kind);
    return text + "; other kinds: " + other_name(row.other_kind) + ", other channels: " + other_name(row.other_count);
}

nlohmann::ordered_json kinds_record(const TarnKINDS& row) {
    nlohmann::ordered_json forms = nlohmann::ordered_json::object();
    for (int kind = 1; kind < 6; ++kind)
        if (row.forms[kind]) forms[kKinds[kind]] = form_names(row.forms[kind]);
    return {{"operation", row.operation},
            {"calls", row.calls},
            {"array", row.array},
            {"argument", row.argument},
            {"forms", forms},
            {"other_kinds", other_name(row.other_kind)},
            {"other_channels", other_name(row.other_count)}};
}

}  // namespace tarn::tool
