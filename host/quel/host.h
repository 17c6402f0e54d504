/* The reference host: loads tarn-ipp (and, when there is one, its companion), and gives out its operations.
 *
 *     QuelERR err = {0};
 *     QuelHOST* host = QuelHOSTopen(&err);
 *     QuelHOSTload(host, NULL, &err);                       // tarn-ipp.so beside this library, or in tarn/ there
 *     QuelOP op;
 *     QuelHOSTfind(host, "tarn::copy", &op, &err);
 *     ((TarnCopy)op.entry)(&op.call, &err, NULL, &dst, &src);
 *     QuelHOSTclose(host);
 *
 * A host may be used from several threads once its modules are loaded; each call needs its own QuelERR.
 */
#ifndef TARN_QUEL_HOST_H
#define TARN_QUEL_HOST_H

#include "lumo.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct QuelHOST QuelHOST;

/* An operation ready to be called: cast entry to the operation's type (tarn.h) and pass &call first. Valid until the
 * host is closed; may be copied. */
typedef struct QuelOP {
    QuelENTRY entry;
    QuelCALL call;
} QuelOP;

/* Makes an empty host. Null when memory is out. */
KA_API QuelHOST* QuelHOSTopen(QuelERR* err);

/* Loads a module: opens the library, reads its descriptor (checking every field that the host relies on), attaches it,
 * and calls init-once. Modules it depends on ("tarn-c") are loaded from the same folder when they exist; that they do
 * not is no error. path  library file; null: tarn-ipp.so in the folder of this library Returns 0, or -1 with an error
 * value (QUEL_E_MODULE) that names the file and the reason. */
KA_API int64_t QuelHOSTload(QuelHOST* host, const char* path, QuelERR* err);

/* Finds an operation by slot name ("scaleresize"), qualified name ("tarn::scale-resize") or the latter without its
 * family
 * ("scale-resize").
 * A slot that the module declares but does not implement is served by the companion when that is loaded; otherwise the
 * operation found makes a QUEL_E_UNSERVED error value and returns -1 when called.
 * Returns 0, or -1 with an error value when there is no such name or the slot is reserved. */
KA_API int64_t QuelHOSTfind(QuelHOST* host, const char* name, QuelOP* op, QuelERR* err);

/* The same by slot number, 0 to 199. */
KA_API int64_t QuelHOSTslot(QuelHOST* host, int32_t slot, QuelOP* op, QuelERR* err);

/* The loaded module's descriptor and its interface record as the module gave it; null before a load. */
KA_API const QuelMODULE* QuelHOSTmodule(const QuelHOST* host);
KA_API const QuelIFACE* QuelHOSTiface(const QuelHOST* host);
/* The table that calls go through: the same, with declared slots routed. */
KA_API const QuelIFACE* QuelHOSTtable(const QuelHOST* host);

/* Calls fini-once and closes the host; null is ignored. */
KA_API void QuelHOSTclose(QuelHOST* host);

#ifdef __cplusplus
}
#endif
#endif
