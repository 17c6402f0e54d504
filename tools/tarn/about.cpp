// Commands about the module itself: its slots, its record, help on its operations. All of it is read from the loaded
// module.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "error.h"
#include "kinds.h"
#include "level.h"
#include "options.h"

namespace tarn::tool {
namespace {
// What a slot is.
const char* kind_of(const QuelSLOT& slot) {
    if (slot.entry == QUEL_ENTRY_DECLARED) return "declared";
    if (slot.entry) return "implemented";
    return std::strncmp(slot.name, "reserved", 8) == 0 ? "reserved" : "empty";
}

nlohmann::ordered_json slot_record(const QuelIFACE& iface, int number) {
    const QuelSLOT& slot = iface.slots[number];
    const std::string kind = kind_of(slot);
    return {{"slot", number},
            {"name", slot.name},
            {"qualified", slot.qualified},
            {"kind", kind},
            {"summary", kind == "implemented" ? operation_summary(slot.qualified) : ""}};
}

struct Ops {
    bool json = false, markdown = false, types = false;
    std::string kind = "all";
};

// Which types each operation takes.
void print_types(const Ops& options) {
    if (options.kind != "all") usage("--kind", "can't go with --types", "give one of them");
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    if (options.markdown) std::cout << "| operation | array | types |\n|---|---|---|\n";
    for (const TarnKINDS& row : all_kinds()) {
        list.push_back(kinds_record(row));
        const std::string array = row.array + (*row.calls ? ", " + std::string(row.calls) : "");
        if (options.markdown)
            std::cout << "| `" << row.operation << "` | " << array << " | " << kinds_text(row) << " |\n";
        else if (!options.json)
            std::cout << std::left << std::setw(28) << row.operation << std::setw(28) << array << kinds_text(row)
                      << "\n";
    }
    if (options.json) print_json(list);
}

void run_ops(const Ops& options) {
    if (options.json && options.markdown) usage("--markdown", "can't go with --json", "give one of them");
    const std::vector<std::string> kinds = {"all", "implemented", "declared", "reserved", "empty"};
    parse_word(options.kind, "--kind", kinds);
    if (options.types) return print_types(options);
    const Module module;
    const QuelIFACE& iface = *QuelHOSTiface(module.host());
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (uint64_t i = 0; i < iface.slot_count; ++i) {
        auto record = slot_record(iface, static_cast<int>(i));
        if (options.kind == "all" || record["kind"] == options.kind) list.push_back(std::move(record));
    }
    if (options.json) {
        print_json(list);
        return;
    }
    if (options.markdown) std::cout << "| slot | name | operation | kind | what it does |\n|---:|---|---|---|---|\n";
    for (const auto& r : list) {
        const auto text = [&](const char* key) { return r[key].get<std::string>(); };
        char line[300];
        std::snprintf(line, sizeof line,
                      options.markdown ? "| %d | `%s` | `%s` | %s | %s |" : "%3d  %-20s %-34s %-12s %s",
                      r["slot"].get<int>(), text("name").c_str(), text("qualified").c_str(), text("kind").c_str(),
                      text("summary").c_str());
        std::string trimmed = line;
        while (trimmed.back() == ' ') trimmed.pop_back();
        std::cout << trimmed << "\n";
    }
}

// The processor's level by the features that each asks for: the module's own choice, for a library that can't be asked.
const char* processor_level() {
#if defined(__x86_64__)
    __builtin_cpu_init();
    const auto has = [](bool feature) { return feature; };
    const bool v2 = has(__builtin_cpu_supports("sse4.2"));
    const bool v3 = v2 && has(__builtin_cpu_supports("popcnt")) && has(__builtin_cpu_supports("avx2")) &&
                    has(__builtin_cpu_supports("fma")) && has(__builtin_cpu_supports("bmi")) &&
                    has(__builtin_cpu_supports("bmi2"));
    const bool v4 = v3 && has(__builtin_cpu_supports("avx512f")) && has(__builtin_cpu_supports("avx512cd")) &&
                    has(__builtin_cpu_supports("avx512bw")) && has(__builtin_cpu_supports("avx512dq")) &&
                    has(__builtin_cpu_supports("avx512vl"));
    if (v4) return "avx512";
    if (v3) return "avx2";
    if (v2) return "sse42";
    if (__builtin_cpu_supports("ssse3")) return "ssse3";
    return "sse2";
#else
    return "baseline";
#endif
}

// When a file was written, as "2026-01-31 12:00:00 UTC".
std::string date_of(const std::string& file) {
    struct stat status = {};
    std::tm parts = {};
    char text[40] = "";
    if (stat(file.c_str(), &status) == 0 && gmtime_r(&status.st_mtime, &parts))
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

// The library file that holds this address.
std::string file_of(const void* address) {
    Dl_info found = {};
    if (!dladdr(address, &found) || !found.dli_fname) return "unknown";
    std::error_code failed;
    const auto path = std::filesystem::canonical(found.dli_fname, failed);
    return failed ? found.dli_fname : path.string();
}

void run_info(bool json) {
    const Module module;
    const QuelMODULE& descriptor = *QuelHOSTmodule(module.host());
    const QuelIFACE& iface = *QuelHOSTiface(module.host());
    const std::string file = file_of(&descriptor);
    const std::string folder = file.substr(0, file.rfind('/') + 1);
    nlohmann::ordered_json info = {{"module", descriptor.name},
                                   {"path_key", descriptor.path},
                                   {"library", file},
                                   {"build_date", date_of(file)},
                                   {"descriptor_date", descriptor.build_date},
                                   {"interface", iface.path},
                                   {"slots", iface.slot_count}};
    int implemented = 0;
    for (uint64_t i = 0; i < iface.slot_count; ++i)
        implemented += std::strcmp(kind_of(iface.slots[i]), "implemented") == 0;
    info["implemented"] = implemented;
    const QuelDEPLIST* needs = descriptor.dependencies ? descriptor.dependencies() : nullptr;
    nlohmann::ordered_json companions = nlohmann::ordered_json::array();
    std::string told;
    for (uint64_t i = 0; needs && i < needs->count; ++i) {
        // the host loads companions from the module's folder
        void* loaded = dlopen((folder + needs->names[i] + ".so").c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (loaded) dlclose(loaded);
        companions.push_back({{"name", needs->names[i]}, {"loaded", loaded != nullptr}});
        told += std::string(i ? ", " : "") + needs->names[i] + (loaded ? " (loaded)" : " (not loaded)");
    }
    if (json)
        info["depends_on"] = companions;
    else
        info["depends_on"] = told;
    const auto levels = levels_of(module.host());
    info["processor_level"] = !levels.empty() ? levels.back() : processor_level();
    print_values(info, json);
}

void run_help(CLI::App& app, const std::string& topic) {
    if (topic.empty()) {
        std::cout << help_text(app, "");
        return;
    }
    if (const Command* command = find_command(topic)) {
        std::cout << help_text(app, command->name);
        return;
    }
    const Module module;
    const QuelIFACE& iface = *QuelHOSTiface(module.host());
    for (uint64_t i = 0; i < iface.slot_count; ++i) {
        const QuelSLOT& slot = iface.slots[i];
        if (topic != slot.name && topic != slot.qualified && std::string("tarn::") + topic != slot.qualified) continue;
        auto record = slot_record(iface, static_cast<int>(i));
        record["command"] = "none";
        print_values(record, false);
        return;
    }
    usage(topic, "is neither a command nor an operation", "`tarn ops` lists the operations, `tarn help` the commands");
}
}  // namespace

Run setup_ops(CLI::App& app) {
    const auto options = std::make_shared<Ops>();
    add_json(app, options->json);
    add_flag(app, "--markdown", options->markdown, "print a Markdown table");
    add_option(app, "--kind", options->kind, "all (default), implemented, declared, reserved or empty")
        .type_name("KIND");
    add_flag(app, "--types", options->types,
             "list the element types and channels that each operation takes, and what it does with others");
    return [options] { run_ops(*options); };
}

Run setup_info(CLI::App& app) {
    const auto json = std::make_shared<bool>(false);
    add_json(app, *json);
    return [json] { run_info(*json); };
}

Run setup_help(CLI::App& app) {
    const auto topic = std::make_shared<std::string>();
    add_option(app, "OPERATION", *topic, "command or operation to tell about (default: the program)").type_name("");
    return [topic, &app] { run_help(app, *topic); };
}

}  // namespace tarn::tool
