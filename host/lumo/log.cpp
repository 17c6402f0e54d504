// The log: one line a call, to a callback or to standard error.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "lumo.h"

namespace {

LumoLOGGER default_logger = {2, 0, nullptr, nullptr};

void write_to_stderr(int32_t level, const char* line) {
    static const char* const kNames[] = {"fatal", "error", "warning", "info"};
    const char* name = kNames[level < 1 ? 0 : level > 4 ? 3 : level - 1];
    fprintf(stderr, "lumo: %s: %s\n", name, line);
}

}  // namespace

LumoLOGGER* _G_Lumo_default_logger = &default_logger;

void LumoLOGprintf(LumoLOGGER* logger, int32_t level, const char* format, ...) {
    if (!logger || level > logger->level) return;
    char line[1024];
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(line, sizeof line, format, values);
    va_end(values);
    if (length < 0) return;
    if (size_t(length) >= sizeof line) memcpy(line + sizeof line - 4, "...", 4);
    if (logger->write)
        logger->write(logger->context, level, line);
    else
        write_to_stderr(level, line);
}
