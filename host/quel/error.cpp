// The error makers and the growing list.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "quel.h"

namespace {

// The value's codes and its text; a text that is too long ends in "...".
int64_t make(QuelERR* err, uint32_t iface, uint32_t code, uint32_t cls, uint32_t form, const char* format,
             va_list values) {
    QuelERRVAL& value = err->last;
    value.iface = iface;
    value.code = code;
    value.cls = cls;
    value.form = form;
    const int length = vsnprintf(value.text, sizeof value.text, format, values);
    if (length < 0)
        snprintf(value.text, sizeof value.text, "error %u of class %u (its text can't be printed)", code, cls);
    else if (size_t(length) >= sizeof value.text)
        memcpy(value.text + sizeof value.text - 4, "...", 4);
    err->status = (err->status & ~UINT64_C(0xffffffff)) | uint64_t(iface & 0xffff) << 16 | (code & 0xffff);
    err->count += 1;
    return -1;
}

int64_t make_text(QuelERR* err, uint32_t iface, uint32_t code, uint32_t cls, uint32_t form, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const int64_t result = make(err, iface, code, cls, form, format, values);
    va_end(values);
    return result;
}

const char* shown(const char* text) { return text ? text : "?"; }

}  // namespace

int64_t QuelMkerr(uint64_t, QuelERR* err, uint64_t, uint64_t, uint64_t, uint32_t iface, uint32_t code, uint32_t cls,
                  uint32_t form, ...) {
    if (!err) return -1;
    const int arguments = form == 1 ? 1 : form == 3 || form == 6 ? 3 : 0;
    const char* text[3] = {};
    va_list values;
    va_start(values, form);
    for (int i = 0; i < arguments; ++i) text[i] = shown(va_arg(values, const char*));
    va_end(values);
    switch (form) {
        case 1:
            return make_text(err, iface, code, cls, form, "%s: out of memory; free some or work on smaller arrays",
                             text[0]);
        case 3:
            return make_text(err, iface, code, cls, form, "%s::%s: %s is out of range; see the operation's description",
                             text[0], text[1], text[2]);
        case 6:
            return make_text(err, iface, code, cls, form,
                             "%s::%s: unsupported %s; see the operation's description for what it takes", text[0],
                             text[1], text[2]);
        default:
            return make_text(err, iface, code, cls, form, "error %u of class %u from interface 0x%04x", code, cls,
                             iface);
    }
}

int64_t QuelMkerr_u(QuelERR* err, uint64_t, uint64_t, uint64_t, uint32_t iface, uint32_t code, uint32_t cls,
                    const char* format, ...) {
    if (!err) return -1;
    va_list values;
    va_start(values, format);
    const int64_t result = make(err, iface, code, cls, 0, format ? format : "error without a text", values);
    va_end(values);
    return result;
}

int64_t _QuelSelistPushback_nlk(QuelSELIST* list, const void* entry, uint64_t, void*) {
    if (!list) return -1;
    if (list->count == list->capacity) {
        const uint64_t capacity = list->capacity ? 2 * list->capacity : 8;
        void* grown = realloc(list->entries, capacity * sizeof *list->entries);
        if (!grown) return -1;
        list->entries = static_cast<const void**>(grown);
        list->capacity = capacity;
    }
    list->entries[list->count++] = entry;
    return 0;
}
