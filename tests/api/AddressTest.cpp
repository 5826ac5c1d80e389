#include "support/Allocations.h"

#include <connector/api/Address.h>
#include <connector/api/ServiceNameHash.h>

#include <gmock/gmock.h>

#include <type_traits>
#include <vector>

namespace connector::test {
namespace {

using testing::ElementsAreArray;

static_assert(std::is_nothrow_move_constructible_v<Address> && std::is_nothrow_move_assignable_v<Address>);

// The values are part of what hosts and providers rely on: they decide which names are the same service.
static_assert(serviceNameHash("abc") == 193485963 && serviceNameHash("?abc") == 193485963);
static_assert(serviceNameHash("") == 5381 && serviceNameHash("?") == 5381);
static_assert(serviceNameHash("\xE9") == 177550);
static_assert(serviceNameHash("abcd") == 6385036879 && serviceNameHash("?abcd\xE9"
                                                                       "fghi") == 249880927555663542);
static_assert(serviceNameHash("aB") == 5863176 && serviceNameHash("b!") == 5863176);
static_assert(serviceNameHash("??a") == 5862085 && serviceNameHash("?a") == 177670 && serviceNameHash("a") == 177670);

TEST(Address, IsTakenApartAtSlashes) {
    const struct {
        const char* text;
        std::vector<std::string> segments;
    } cases[] = {
        {"", {}},
        {"a", {"a"}},
        {"a/b", {"a", "b"}},
        {"/a", {"", "a"}},
        {"a/", {"a", ""}},
        {"/", {"", ""}},
        {"a//b", {"a", "", "b"}},
        {"?x/a", {"?x", "a"}},
        {"?", {"?"}},
        {"\xC3\xA9/\xFF", {"\xC3\xA9", "\xFF"}},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.text);
        Address byText(expected.text);
        Address byHash(expected.text);
        std::vector<std::string> segments;
        while (!byText.empty()) {
            EXPECT_EQ(byText.peekHash(), serviceNameHash(expected.segments.at(segments.size())));
            EXPECT_EQ(byHash.popHash(), byText.peekHash());
            segments.push_back(byText.pop());
            EXPECT_EQ(byHash.toString(), byText.toString());
        }
        EXPECT_THAT(segments, ElementsAreArray(expected.segments));
        EXPECT_TRUE(byHash.empty());
    }
}

TEST(Address, WithoutSegmentsGivesEmptyTexts) {
    for (Address address : {Address(), Address("")}) {
        EXPECT_EQ(address.peekHash(), 5381u);
        EXPECT_EQ(address.popHash(), 5381u);
        EXPECT_EQ(address.pop(), "");
        EXPECT_EQ(address.toString(), "");
        EXPECT_TRUE(address.empty());
    }
}

TEST(Address, IsAValue) {
    const std::string longText = "a/segment that fits no small string/z";
    for (const std::string& text : {std::string("a/b/"), longText}) {
        Address original(text);
        original.pop();
        const std::string rest = original.toString();

        Address copy(original);
        copy.pop();
        EXPECT_EQ(original.toString(), rest);
        copy = original;
        EXPECT_EQ(copy.toString(), rest);

        Address moved(std::move(copy));
        EXPECT_TRUE(copy.empty()); // NOLINT(bugprone-use-after-move): what is promised of it
        EXPECT_EQ(copy.pop(), "");
        copy = std::move(moved);
        EXPECT_EQ(copy.toString(), rest);
        EXPECT_TRUE(moved.empty()); // NOLINT(bugprone-use-after-move)

        Address& self = copy;
        copy = std::move(self);
        EXPECT_EQ(copy.toString(), rest);
    }
}

TEST(Address, OfASmallStringAllocatesNothing) {
    std::string text("service/op/x");
    const AllocationCount allocations;
    Address address(std::move(text));
    Address moved(std::move(address));
    std::uint64_t hashes = moved.peekHash();
    while (!moved.empty())
        hashes += moved.popHash();
    EXPECT_EQ(allocations(), 0u);
    EXPECT_NE(hashes, 0u);
}

} // namespace
} // namespace connector::test
