// How functions of libKa and libLumo fail: with null, and the code in the low half of the error context's status word.
#ifndef TARN_HOST_KA_FAIL_H
#define TARN_HOST_KA_FAIL_H

#include "quel.h"

namespace ka {

inline decltype(nullptr) fail(QuelERR* err, uint32_t code) {
    if (err) err->status = (err->status & ~UINT64_C(0xffff)) | code;
    return nullptr;
}

}  // namespace ka
#endif
