// Error values, lists and the log.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "lumo.h"

namespace {

TEST(Errors, say_what_went_wrong_in_each_form) {
    struct Row {
        uint32_t form, code, cls;
        const char *a, *b, *c;
        const char* text;
    };
    const Row rows[] = {
        {1, QUEL_E_NOMEM, QUEL_C_NOMEM, "filter", "", "", "filter: out of memory"},
        {3, QUEL_E_OPTION, QUEL_C_ARGUMENT, "tarn", "threshold", "@options(.mtho_ksize)",
         "tarn::threshold: @options(.mtho_ksize) is out of range"},
        {6, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, "tarn", "reshape", "@ArrOrderMethod",
         "tarn::reshape: unsupported @ArrOrderMethod"},
        {6, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, "tarn", nullptr, "%s%n", "tarn::?: unsupported %s%n"},
        {77, 5, 6, "", "", "", "error 5 of class 6"},
    };
    QuelERR err = {};
    err.status = UINT64_C(0x12345678ffffffff);
    for (const Row& row : rows) {
        EXPECT_EQ(QuelMkerr(0, &err, 0, 0, 0, 0x05e7, row.code, row.cls, row.form, row.a, row.b, row.c), -1);
        EXPECT_EQ(err.last.iface, 0x05e7u);
        EXPECT_EQ(err.last.code, row.code);
        EXPECT_EQ(err.last.cls, row.cls);
        EXPECT_EQ(err.last.form, row.form);
        EXPECT_EQ(std::string(err.last.text).find(row.text), 0u) << err.last.text;
        EXPECT_EQ(err.status, UINT64_C(0x1234567805e70000) | row.code);
    }
    EXPECT_EQ(err.count, 5u);
    EXPECT_EQ(QuelMkerr(0, nullptr, 0, 0, 0, 1, 2, 3, 6, "a", "b", "c"), -1);
}

TEST(Errors, with_a_text_of_their_own_are_printed_and_cut) {
    QuelERR err = {};
    EXPECT_EQ(QuelMkerr_u(&err, 0, 0, 0, 0x05e7, QUEL_E_OPTION, QUEL_C_ARGUMENT, "%d/%d: batch", 2, -3), -1);
    EXPECT_STREQ(err.last.text, "2/-3: batch");
    EXPECT_EQ(err.last.form, 0u);
    const std::string fits(sizeof err.last.text - 1, 'x'), too_long(1000, 'y');
    QuelMkerr_u(&err, 0, 0, 0, 1, 2, 3, "%s", fits.c_str());
    EXPECT_EQ(err.last.text, fits);
    QuelMkerr_u(&err, 0, 0, 0, 1, 2, 3, "%s", too_long.c_str());
    EXPECT_EQ(err.last.text, std::string(sizeof err.last.text - 4, 'y') + "...");
    QuelMkerr(0, &err, 0, 0, 0, 1, 2, 3, 3, "tarn", "x", too_long.c_str());
    EXPECT_EQ(std::string(err.last.text).size(), sizeof err.last.text - 1);
    EXPECT_EQ(err.count, 4u);
    EXPECT_EQ(QuelMkerr_u(nullptr, 0, 0, 0, 1, 2, 3, "%d", 1), -1);
}

TEST(Lists, keep_entries_in_order_while_they_grow) {
    QuelSELIST list = {};
    int entries[100];
    for (int& entry : entries) EXPECT_EQ(_QuelSelistPushback_nlk(&list, &entry, 0, nullptr), 0);
    ASSERT_EQ(list.count, 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(list.entries[i], &entries[i]);
    EXPECT_EQ(_QuelSelistPushback_nlk(nullptr, entries, 0, nullptr), -1);
    free(list.entries);
}

TEST(Log, drops_what_is_above_its_level_and_hands_the_rest_on) {
    std::vector<std::pair<int32_t, std::string>> lines;
    LumoLOGGER logger = {3, 0,
                         [](void* context, int32_t level, const char* line) {
                             static_cast<decltype(lines)*>(context)->emplace_back(level, line);
                         },
                         &lines};
    LumoLOGprintf(&logger, 1, "%s:%d: unreachable", "file", 7);
    LumoLOGprintf(&logger, 3, "%s", std::string(5000, 'z').c_str());
    LumoLOGprintf(&logger, 4, "information");
    LumoLOGprintf(nullptr, 1, "nobody hears");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], std::make_pair(1, std::string("file:7: unreachable")));
    EXPECT_EQ(lines[1].second, std::string(1020, 'z') + "...");
}

TEST(Log, goes_to_standard_error_by_default) {
    testing::internal::CaptureStderr();
    LumoLOGprintf(_G_Lumo_default_logger, 2, "broken %d", 5);
    LumoLOGprintf(_G_Lumo_default_logger, 3, "not shown");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "lumo: error: broken 5\n");
}

}  // namespace
