// The reference host with the module in it, for rows of whole operations.
#pragma once

#include <stdexcept>

#include "quel/host.h"

namespace tarn::bench {

struct Host {
    Host() : host(QuelHOSTopen(&err)) {
        if (!host || QuelHOSTload(host, TARN_MODULE_FILE, &err) != 0) throw std::runtime_error(err.last.text);
    }
    ~Host() { QuelHOSTclose(host); }
    Host(const Host&) = delete;
    QuelOP find(const char* name) {
        QuelOP op;
        if (QuelHOSTfind(host, name, &op, &err) != 0) throw std::runtime_error(err.last.text);
        return op;
    }
    QuelERR err = {};
    QuelHOST* host;
};

}  // namespace tarn::bench
