#include "call.h"

#include <cstdlib>
#include <cstring>

#include "error.h"
#include "level.h"
#include "tarn_kinds.h"

namespace tarn::tool {
namespace {
std::string text_of(const QuelERR& err) { return err.count ? err.last.text : "no reason given"; }

// "tarn::scale-resize" is the command scale-resize, "tarn::contour::find" is contour-find.
std::string command_of(const std::string& name) {
    std::string command;
    for (size_t i = name.starts_with("tarn::") ? 6 : 0; i < name.size(); ++i)
        if (name[i] != ':')
            command += name[i];
        else if (name[i - 1] == ':')
            command += '-';
    return command;
}
}  // namespace

Module::Module() {
    QuelERR err = {};
    host_ = QuelHOSTopen(&err);
    if (!host_) fail("host", "no memory");
    const char* path = std::getenv("TARN_MODULE");
    if (path && !*path) path = nullptr;
    if (QuelHOSTload(host_, path, &err) == 0) {
        try {
            apply_level(host_);
        } catch (...) {
            QuelHOSTclose(host_);
            throw;
        }
        return;
    }
    QuelHOSTclose(host_);
    fail(path ? path : "tarn-ipp.so", "can't be loaded: " + text_of(err),
         path ? "let TARN_MODULE name the module's library" : "build or install the module beside the host library");
}

Module::~Module() { QuelHOSTclose(host_); }

Operation::Operation(const Module& module, const std::string& name, Timing& timing)
    : qualified_(name), name_(command_of(name)), timing_(timing) {
    QuelERR err = {};
    if (QuelHOSTfind(module.host(), name.c_str(), &op_, &err) != 0)
        fail(name_, text_of(err), "the loaded module is another one than this program was made for");
}

void Operation::require_type(int32_t place, LumoELEMTYPE type, const std::string& given) const {
    const TarnKINDS* row = type ? TarnKINDSfind(qualified_.c_str(), place) : nullptr;
    if (row && TarnKINDSother(row, type) > TARN_OTHERS_ERROR)
        fail(name_, "doesn't take " + given, "`tarn help " + name_ + "` tells what it takes");
}

void Operation::refused(const QuelERR& err, const std::string& given) const {
    const uint32_t code = err.count ? err.last.code : static_cast<uint32_t>(err.status & 0xffff);
    // Without an error value it is a temporary that can't be had.
    if (code == QUEL_E_NOMEM || code == 0) fail(name_, "out of memory for " + given, "choose a smaller size");
    if (code == QUEL_E_UNSERVED) fail(name_, text_of(err), "install the module that serves it beside tarn-ipp.so");
    fail(name_, "refused " + given + " (" + text_of(err) + ")", "see `tarn help " + name_ + "`");
}

}  // namespace tarn::tool
