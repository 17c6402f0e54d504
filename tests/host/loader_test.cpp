// The loader and the routing, with made-up modules (fakes/module.c).
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "quel/host.h"

namespace {

using Sum = int64_t (*)(const QuelCALL*, QuelERR*, KaSMEMSTG*, int64_t, int64_t);
using Watch = int64_t (*)(const QuelCALL*, QuelERR*, KaSMEMSTG*, int*);

std::string fake(const std::string& name) { return std::string(FAKES_DIR) + "/" + name + ".so"; }

class Loader : public testing::Test {
protected:
    void SetUp() override { host = QuelHOSTopen(&err); }
    void TearDown() override { QuelHOSTclose(host); }

    // Loads, which must fail with a module error that names the file and holds this text.
    void expect_refused(const std::string& path, const std::string& reason) {
        err = {};
        EXPECT_EQ(QuelHOSTload(host, path.c_str(), &err), -1);
        const std::string text = err.last.text;
        EXPECT_GE(err.count, 1u);
        EXPECT_EQ(err.last.code, uint32_t(QUEL_E_MODULE));
        EXPECT_NE(text.find(path), std::string::npos) << text;
        EXPECT_NE(text.find(reason), std::string::npos) << text;
        EXPECT_EQ(QuelHOSTmodule(host), nullptr);
        EXPECT_EQ(QuelHOSTtable(host), nullptr);
    }
    void load(const std::string& name) { ASSERT_EQ(QuelHOSTload(host, fake(name).c_str(), &err), 0) << err.last.text; }
    QuelOP find(const char* name) {
        QuelOP op = {};
        EXPECT_EQ(QuelHOSTfind(host, name, &op, &err), 0) << err.last.text;
        return op;
    }

    QuelERR err = {};
    QuelHOST* host;
};

TEST_F(Loader, names_file_and_reason_for_whatever_is_wrong_with_a_module) {
    struct Row {
        const char *fault, *reason;
    };
    for (const Row& row :
         {Row{"NO_SYMBOL", "no symbol _G_quel_module"}, Row{"NULL_DESCRIPTOR", "descriptor is missing"},
          Row{"WRONG_FORMAT", "descriptor's format word is 0x7"}, Row{"NO_NAME", "no name"},
          Row{"NO_ATTACH", "no attach function"}, Row{"ATTACH_FAILS", "attach function failed"},
          Row{"NOT_ATTACHED", "doesn't say that it is attached"}, Row{"NO_CELL", "gives no interface"},
          Row{"UNREGISTERED", "not the one that it registers"},
          Row{"WRONG_IFACE_FORMAT", "interface's format word is 0x7"}, Row{"NO_FAMILY", "interface has no name"},
          Row{"WRONG_SLOT_COUNT", "199 slots where this host knows 200"}, Row{"UNNAMED_SLOT", "slot has no name"},
          Row{"NO_INIT", "init-once is missing"}, Row{"INIT_FAILS", "init-once"}}) {
        SCOPED_TRACE(row.fault);
        expect_refused(fake(std::string("faulty/") + row.fault), row.reason);
    }
    expect_refused(fake("nowhere"), "no such file");
    const std::string text = fake("text");
    std::ofstream(text) << "this is no library\n";
    expect_refused(text, "");
    remove(text.c_str());
    expect_refused(FAKES_DIR, "");
    load("alone/good");  // and the host is as good as new
}

TEST_F(Loader, finds_operations_by_slot_name_qualified_name_and_without_family) {
    load("alone/good");
    EXPECT_STREQ(QuelHOSTmodule(host)->name, "good");
    struct Row {
        const char* name;
        int32_t slot;
    };
    for (const Row& row : {Row{"init_once", 0}, Row{"init-once", 0}, Row{"watch", 5}, Row{"tarn::watch-it", 5},
                           Row{"watch-it", 5}, Row{"tarn::watch", 9}, Row{"deep::forward", 7}, Row{"sum", 6}}) {
        const QuelOP op = find(row.name);
        EXPECT_EQ(op.call.slot, row.slot) << row.name;
        EXPECT_EQ(op.call.iface, QuelHOSTtable(host));
        EXPECT_EQ(op.entry, QuelHOSTtable(host)->slots[row.slot].entry);
    }
    QuelOP op = {};
    for (const char* name :
         {"", "tarn", "tarn::", "Watch", "reserved", "forward-not", static_cast<const char*>(nullptr)}) {
        err = {};
        EXPECT_EQ(QuelHOSTfind(host, name, &op, &err), -1);
        EXPECT_EQ(err.last.code, uint32_t(QUEL_E_OPTION));
    }
    for (int32_t slot : {-1, 200, INT32_MAX, 2}) EXPECT_EQ(QuelHOSTslot(host, slot, &op, &err), -1);
    EXPECT_EQ(QuelHOSTslot(host, 7, &op, &err), 0);
}

TEST_F(Loader, calls_init_once_and_fini_once) {
    int closed = 0;
    load("alone/good");
    const QuelOP op = find("watch");
    EXPECT_EQ(reinterpret_cast<Watch>(op.entry)(&op.call, &err, nullptr, &closed), 1);
    EXPECT_EQ(QuelHOSTload(host, fake("alone/good").c_str(), &err), -1);  // one module a host
    EXPECT_EQ(closed, 0);
    QuelHOSTclose(host);
    EXPECT_EQ(closed, 1);
    host = nullptr;
    QuelHOSTclose(nullptr);
}

TEST_F(Loader, makes_an_error_value_for_operations_that_nobody_serves) {
    load("alone/good");
    const QuelOP sum = find("sum");
    EXPECT_EQ(reinterpret_cast<Sum>(sum.entry)(&sum.call, &err, nullptr, 3, 4), -1);
    EXPECT_EQ(err.last.code, uint32_t(QUEL_E_UNSERVED));
    EXPECT_EQ(err.last.iface, 0x05e7u);
    EXPECT_STREQ(err.last.text,
                 "no loaded module serves tarn::sum; put the companion module tarn-c.so beside this one");
    // A sibling call carries its caller's slot, and must still name the operation that is missing.
    err = {};
    const QuelOP forward = find("forward");
    EXPECT_EQ(reinterpret_cast<Sum>(forward.entry)(&forward.call, &err, nullptr, 3, 4), -1);
    EXPECT_NE(std::string(err.last.text).find("tarn::sum"), std::string::npos);
    EXPECT_EQ(reinterpret_cast<Sum>(sum.entry)(&sum.call, nullptr, nullptr, 3, 4), -1);
    EXPECT_EQ(QuelHOSTiface(host)->slots[6].entry, QUEL_ENTRY_DECLARED);  // the module's own record stays as it is
}

TEST_F(Loader, routes_declared_slots_to_the_companion_by_name) {
    load("pair/good");
    for (const char* name : {"sum", "forward"}) {
        const QuelOP op = find(name);
        EXPECT_EQ(reinterpret_cast<Sum>(op.entry)(&op.call, &err, nullptr, 3, 4), 7) << name;
    }
    // Declared here and declared there: nobody serves it, and no file is missing.
    const QuelOP gone = find("gone");
    EXPECT_EQ(reinterpret_cast<Sum>(gone.entry)(&gone.call, &err, nullptr, 0, 0), -1);
    EXPECT_STREQ(err.last.text, "no loaded module serves tarn::gone");
}

TEST_F(Loader, calls_no_other_first_slot_of_a_companion) { load("other_first/good"); }

TEST_F(Loader, refuses_a_companion_that_is_broken_or_of_another_family) {
    for (const char* folder : {"broken_pair", "other_family"}) {
        err = {};
        EXPECT_EQ(QuelHOSTload(host, fake(std::string(folder) + "/good").c_str(), &err), -1);
        EXPECT_NE(std::string(err.last.text).find(fake(std::string(folder) + "/tarn-c")), std::string::npos)
            << err.last.text;
    }
    load("pair/good");
}

TEST_F(Loader, without_a_module_has_no_operations) {
    QuelOP op;
    EXPECT_EQ(QuelHOSTfind(host, "copy", &op, &err), -1);
    EXPECT_EQ(QuelHOSTslot(host, 57, &op, &err), -1);
    EXPECT_EQ(QuelHOSTiface(host), nullptr);
    EXPECT_EQ(QuelHOSTload(nullptr, nullptr, &err), -1);
}

}  // namespace
