#include "find/ProductFilter.h"

#include "tests/find/FindTest.h"

namespace velmora_test {
namespace {

TEST(ProductFilter, PassesTheFilterItsFurtherIdsAndWhoeverTellsNothing) {
    constexpr std::uint64_t all = ~0ull;
    struct Case {
        const char* why;
        std::uint64_t filter;
        std::vector<std::uint64_t> further;
        std::uint64_t id, result;
        const char* log;
    };
    const Case cases[] = {
        {"no filter", 0, {}, 77, 77, "Find Target: 77"},
        {"no filter, though further ids are set", 0, {5}, 77, 77, "Find Target: 77"},
        {"no filter and no id", 0, {}, 0, 0, "Find Target: 0"},
        {"a target that reports 0", 9, {}, 0, 0, "Find Target: 0"},
        {"the very product", 9, {}, 9, 9, "Terget Producst : 9"},
        {"another product", 9, {}, 8, all, "Find Skip : 8 9"},
        {"one of the further ids", 9, {7, 8}, 8, 8, "Terget Producst : 8"},
        {"none of the further ids", 9, {6, 7}, 8, all, "Find Skip : 8 9"},
        {"eight characters, in decimal",
         0x45544e4556524f4b,
         {},
         1,
         all,
         "Find Skip : 1 4995703946368667467"},
        {"above what a signed number holds",
         1,
         {},
         0xfffffffffffffffe,
         all,
         "Find Skip : 18446744073709551614 1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.why);
        const LogCapture log;
        FindSetting setting;
        setting.filterID = c.filter;
        setting.furtherIDs = c.further;
        EXPECT_EQ(VELMORA::filterProduct(setting, c.id), c.result);
        EXPECT_THAT(log.texts(6), ElementsAre(c.log));
        EXPECT_EQ(log.lines().size(), 1u);
    }
}

}  // namespace
}  // namespace velmora_test
