// The promises of a module's library and records: what it exports and needs, the words of its descriptor, its
// registration and its table, and that it may be attached and initialised again.
#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include "check.h"
#include "ipp/frame.h"
#include "play/library.h"
#include "quel/host.h"
#include "tarn.h"

namespace tarn::tool {
namespace {
constexpr char kSymbol[] = "_G_quel_module";
constexpr std::string_view kLibraries[] = {"libKa.so", "libLumo.so", "libc.so", "libm.so"};  // of any version

std::string hex(uint64_t word) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%llx", (unsigned long long)(word));
    return text;
}

std::string joined(const std::vector<std::string>& words) {
    std::string all;
    for (const std::string& word : words) all += (all.empty() ? "" : ", ") + word;
    return all.empty() ? "nothing" : all;
}

// ---- File

void file_promise(const std::string& path, Trial& trial) {
    const play::Library library(path.c_str());
    if (!library.good()) return trial.fault("is no shared library for this processor, or has no section table");
    const std::vector<std::string> exports = library.exports();
    if (exports != std::vector<std::string>{kSymbol})
        trial.fault(joined(exports) + "; only " + kSymbol + " is for others");
    trial.seen(std::string(kSymbol) + " alone");
}

void needs_promise(const std::string& path, Trial& trial) {
    const play::Library library(path.c_str());
    if (!library.good()) return trial.unknown("its file can't be read");
    const std::vector<std::string> needs = library.needs();
    std::vector<std::string> others;
    for (const std::string& name : needs)
        if (std::find(std::begin(kLibraries), std::end(kLibraries), name.substr(0, name.find(".so") + 3)) ==
                std::end(kLibraries) &&
            !name.starts_with("ld-linux"))
            others.push_back(name);
    if (!others.empty()) trial.fault(joined(others) + ", beyond the host's and the C library");
    trial.seen(joined(needs));
}

// ---- Records

const QuelMODULE* load(const std::string& path, std::string& why) {
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* reason = dlerror();
        why = reason ? reason : "can't be loaded";
        return nullptr;
    }
    const void* symbol = dlsym(library, kSymbol);
    const QuelMODULE* module = symbol ? *static_cast<const QuelMODULE* const*>(symbol) : nullptr;
    if (!module) why = symbol ? "its descriptor is null" : std::string("has no symbol ") + kSymbol;
    return module;
}

void load_promise(const std::string& path, Trial& trial) {
    trial.step("loading it");
    std::string why;
    if (!load(path, why)) return trial.fault(why);
    trial.seen("into a process of its own");
}

// Compares the words of two records; words that hold texts are told by their offsets.
void compare(Trial& trial, const char* what, const void* record, const void* expected, size_t bytes,
             std::initializer_list<size_t> texts) {
    const auto *is = static_cast<const uint64_t*>(record), *should = static_cast<const uint64_t*>(expected);
    for (size_t i = 0; i < bytes / 8; ++i) {
        const std::string word = std::string(what) + "'s word " + hex(i * 8) + " is ";
        if (std::find(texts.begin(), texts.end(), i * 8) == texts.end()) {
            if (is[i] != should[i]) trial.fault(word + hex(is[i]) + ", not " + hex(should[i]));
            continue;
        }
        const auto *text = reinterpret_cast<const char*>(is[i]), *wanted = reinterpret_cast<const char*>(should[i]);
        if (!text || std::strcmp(text, wanted) != 0)
            trial.fault(word + (text ? "\"" + std::string(text) + "\"" : "null") + ", not \"" + wanted + "\"");
    }
}

void descriptor_promise(const std::string& path, Trial& trial) {
    std::string why;
    trial.step("loading it");
    const QuelMODULE* module = load(path, why);
    if (!module) return trial.unknown("it can't be loaded");
    trial.step("looking at its descriptor");
    if (!module->name || !*module->name || !module->build_date)
        return trial.fault("its descriptor has no name or date");
    const std::string key = std::string("modules/") + module->name;
    QuelMODULE expected = ipp::module_of(key.c_str(), module->name, module->attach, module->dependencies);
    expected.build_date = module->build_date;
    compare(trial, "its descriptor", module, &expected, sizeof expected, {0x48, 0x50, 0x58, 0x188, 0x1e8});
    if (!module->attach) trial.fault("its descriptor has no attach function");
    if (!module->dependencies) return trial.fault("its descriptor has no dependency query");
    trial.step("asking what it depends on");
    const QuelDEPLIST* list = module->dependencies();
    if (!list || list->count > 1) return trial.fault("it names more than one module that it depends on, or no list");
    if (list->count && !list->names[0]) return trial.fault("the module that it depends on has no name");
    trial.seen(std::string(module->name) + ", depends on " + (list->count ? list->names[0] : "no other"));
}

// ---- Attaching

// A module that was attached once, or null.
struct Attached {
    const QuelMODULE* module = nullptr;
    const QuelIFACE* iface = nullptr;
    QuelMODCTX context = {};
};
bool attach(Attached& a, Trial& trial) {
    trial.step("attaching it");
    const int64_t result = a.module->attach(&a.context, nullptr, nullptr, nullptr);
    if (result) trial.fault("its attach function returned " + std::to_string(result));
    if (a.module->attached != 1) trial.fault("its attached flag is " + hex(a.module->attached) + " after attaching");
    a.iface = a.module->cell ? *a.module->cell : nullptr;
    if (!a.iface) trial.fault("it gives no interface");
    return !result && a.iface;
}
bool load_and_attach(const std::string& path, Attached& a, Trial& trial, bool tell) {
    std::string why;
    trial.step("loading it");
    a.module = load(path, why);
    if (!a.module || !a.module->attach) {
        trial.unknown("it can't be loaded or attached");
        return false;
    }
    Trial silent(-1);
    trial.step("attaching it");
    if (attach(a, tell ? trial : silent)) return true;
    if (!tell) trial.unknown("it can't be attached");
    return false;
}

void attach_promise(const std::string& path, int times, Trial& trial) {
    std::string why;
    Attached a;
    if (!load_and_attach(path, a, trial, times == 1)) return;
    const QuelIFACE* first = a.iface;
    for (int i = 1; i < times; ++i)
        if (!attach(a, trial)) return;
    if (a.iface != first) trial.fault("it gives another interface the second time");
    if (a.context.interfaces.count != uint64_t(times))
        return trial.fault("the host's list has " + std::to_string(a.context.interfaces.count) +
                           " entries after attaching " + std::to_string(times) + " times");
    const ipp::Registration expected = ipp::registration_of(const_cast<QuelIFACE*>(a.iface), {});
    if (times == 1)
        compare(trial, "its registration", a.context.interfaces.entries[0], &expected,
                offsetof(ipp::Registration, dependencies), {});
    trial.seen(times == 1 ? "registers its interface" : "registers it twice, says the same");
}

void interface_promise(const std::string& path, Trial& trial) {
    Attached a;
    if (!load_and_attach(path, a, trial, false)) return;
    trial.step("looking at its interface record");
    using namespace ipp;
    const QuelIFACE expected = {TARN_INTERFACE_HEAD, {}};
    compare(trial, "its interface", a.iface, &expected, offsetof(QuelIFACE, slots), {0x48, 0x50, 0x58});
    trial.seen(hex(expected.packed_code >> 48) + " version " + hex(expected.version) + ", " +
               std::to_string(a.iface->slot_count) + " slots");
}

// ---- Slots

enum class Group { implemented, companion, absent, named, reserved };
struct Row {
    int number;
    Group group;
    const char *name, *qualified;
};
constexpr Row kRows[] = {
#define SLOT(number, name, qualified, function, Type) {number, Group::implemented, name, qualified},
#define COMPANION(number, name, qualified) {number, Group::companion, name, qualified},
#define ABSENT(number, name, qualified) {number, Group::absent, name, qualified},
#define NAMED(number, name, qualified) {number, Group::named, name, qualified},
#define RESERVED(number) {number, Group::reserved, "reserved" #number, "tarn::reserved" #number},
#include "ipp/slots.def"
};

void slots_promise(const std::string& path, Trial& trial) {
    Attached a;
    if (!load_and_attach(path, a, trial, false)) return;
    if (a.iface->slot_count != QUEL_IFACE_SLOTS) return trial.unknown("it has another number of slots");
    Dl_info home = {};
    dladdr(a.module, &home);
    int implemented = 0, declared = 0, coded = 0;
    for (const Row& row : kRows) {
        const QuelSLOT& slot = a.iface->slots[row.number];
        const std::string which = "slot " + std::to_string(row.number);
        trial.step("looking at " + which);
        // The digits of slot 111 are its own.
        if (!slot.name || !slot.qualified || std::strcmp(slot.name, row.name) != 0 ||
            (std::strcmp(slot.qualified, row.qualified) != 0 && row.number != 111))
            trial.fault(which + " is called " + (slot.name ? slot.name : "nothing") + ", not " + row.name + " (" +
                        row.qualified + ")");
        if (!slot.signature || std::strcmp(slot.signature, ipp::kSignature) != 0)
            trial.fault(which + " has another signature text");
        if (slot.zero) trial.fault(which + " does not end in a word of zero");
        const bool codes = slot.code_a || slot.code_b;
        if (slot.entry == QUEL_ENTRY_DECLARED) {
            ++declared;
            coded += codes;
            const bool first = slot.code_a == ipp::kInterfaceCode && slot.code_b == 0x606;
            const bool second = slot.code_a == 0x0001000300060003 && !slot.code_b;
            if (row.group == Group::named || row.group == Group::reserved)
                trial.fault(which + " (" + row.name + ") is declared but reserved");
            else if (codes && row.group != Group::implemented && !(row.group == Group::companion ? first : second))
                trial.fault(which + " (" + row.name + ") is declared with the codes " + hex(slot.code_a) + " and " +
                            hex(slot.code_b));
        } else if (slot.entry) {
            ++implemented;
            Dl_info found = {};
            if (row.group == Group::named || row.group == Group::reserved)
                trial.fault(which + " (" + row.name + ") has a function but is reserved");
            else if (!dladdr(reinterpret_cast<const void*>(slot.entry), &found) || found.dli_fbase != home.dli_fbase)
                trial.fault(which + " (" + row.name + ") leads out of the module");
        }
        if (codes && slot.entry != QUEL_ENTRY_DECLARED) trial.fault(which + " has status codes but isn't declared");
    }
    // A companion has no codes at all.
    if (coded && coded != declared)
        trial.fault(std::to_string(declared - coded) + " declared slots are without their status codes");
    trial.seen(std::to_string(implemented) + " implemented, " + std::to_string(declared) + " declared");
}

// ---- Calls before any operation

QuelHOST* open_host(const std::string& path, Trial& trial, bool tell) {
    trial.step("loading it into the host");
    QuelERR err = {};
    QuelHOST* host = QuelHOSTopen(&err);
    if (host && QuelHOSTload(host, path.c_str(), &err) == 0) return host;
    if (tell)
        trial.fault(err.last.text);
    else
        trial.unknown("the host can't load it");
    return nullptr;
}

int64_t call_once(const QuelHOST* host, int32_t slot) {
    QuelERR err = {};
    const QuelIFACE* table = QuelHOSTtable(host);
    const QuelCALL call = {{}, table, slot, 0};
    const QuelENTRY entry = table->slots[slot].entry;
    if (!entry || entry == QUEL_ENTRY_DECLARED) return -1;
    return reinterpret_cast<TarnOnce>(entry)(&call, &err, nullptr);
}

void init_promise(const std::string& path, Trial& trial) {
    QuelHOST* host = open_host(path, trial, true);
    if (!host) return;
    const auto kernels = play::kernels_of(QuelHOSTmodule(host));
    const auto level = [&] { return kernels ? *kernels->level : 0; };
    const int first = level();
    for (const auto& [slot, name] :
         {std::pair{0, "init-once again"}, {1, "fini-once"}, {1, "fini-once again"}, {0, "init-once after it"}}) {
        trial.step(std::string("calling ") + name);
        const int64_t result = call_once(host, slot);
        if (result) trial.fault(std::string(name) + " returned " + std::to_string(result));
        if (level() != first) return trial.fault(std::string(name) + " chose another level");
    }
    trial.seen("the host loads it; init-once and fini-once may be called again");
}

void threads_promise(const std::string& path, Trial& trial) {
    QuelHOST* host = open_host(path, trial, false);
    if (!host) return;
    trial.step("calling init-once from eight threads");
    std::atomic<int> waiting = 8, failed = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            --waiting;
            while (waiting > 0) std::this_thread::yield();
            for (int n = 0; n < 50; ++n) failed += call_once(host, 0) != 0;
        });
    for (std::thread& thread : threads) thread.join();
    if (failed)
        trial.fault("init-once failed " + std::to_string(failed) + " of 400 times when called from eight threads");
    trial.seen("init-once from eight threads at once");
}

void declared_promise(const std::string& path, Trial& trial) {
    QuelHOST* host = open_host(path, trial, false);
    if (!host) return;
    int served = 0, answered = 0;
    for (int32_t i = 0; i < QUEL_IFACE_SLOTS; ++i) {
        const QuelSLOT& slot = QuelHOSTiface(host)->slots[i];
        QuelOP op = {};
        QuelERR err = {};
        if (slot.entry != QUEL_ENTRY_DECLARED) continue;
        trial.step(std::string("calling ") + slot.name);
        Dl_info home = {}, found = {};
        dladdr(reinterpret_cast<const void*>(&QuelHOSTopen), &home);
        if (QuelHOSTslot(host, i, &op, &err) || !dladdr(reinterpret_cast<const void*>(op.entry), &found)) {
            trial.fault(std::string(slot.name) + " leads nowhere");
        } else if (found.dli_fbase != home.dli_fbase) {
            ++served;
        } else {
            ++answered;
            const int64_t result = reinterpret_cast<TarnOnce>(op.entry)(&op.call, &err, nullptr);
            if (result != -1 || err.last.code != QUEL_E_UNSERVED)
                trial.fault(std::string(slot.name) + " makes no error value");
        }
    }
    trial.seen(std::to_string(served) + " served by a companion, " + std::to_string(answered) +
               " answered with an error value");
}
}  // namespace

std::vector<Promise> frame_promises(const std::string& path) {
    return {{"exports", [=](Trial& trial) { file_promise(path, trial); }},
            {"needs", [=](Trial& trial) { needs_promise(path, trial); }},
            {"load", [=](Trial& trial) { load_promise(path, trial); }},
            {"descriptor", [=](Trial& trial) { descriptor_promise(path, trial); }},
            {"attach", [=](Trial& trial) { attach_promise(path, 1, trial); }},
            {"attach twice", [=](Trial& trial) { attach_promise(path, 2, trial); }},
            {"interface", [=](Trial& trial) { interface_promise(path, trial); }},
            {"slots", [=](Trial& trial) { slots_promise(path, trial); }},
            {"init", [=](Trial& trial) { init_promise(path, trial); }},
            {"threads", [=](Trial& trial) { threads_promise(path, trial); }},
            {"declared", [=](Trial& trial) { declared_promise(path, trial); }}};
}

}  // namespace tarn::tool
