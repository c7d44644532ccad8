// Demo::Switch's collections and functions, through reflection.
#include <gtest/gtest.h>

#include "demo/Switch.h"
#include "demo/tests/Reflect.h"

using namespace demotest;
using Zel::ArgVector;
using Zel::String8;
using Zel::toGenericIf;

namespace {

struct SwitchTest : ::testing::Test {
    Zel::Ptr<Zel::GenericIf> sw = make("Demo::Switch", String8("sw1"));
    Zel::ZelAttr const* a(char const* n) { return attr(sw.ptr(), n); }
    std::vector<std::string> keys(char const* n) {
        std::vector<std::string> out;
        for (auto it = a(n)->genericIfIterator(sw.ptr()); it.valid(); it.advance()) out.push_back(it.key() ? it.key()->strep().str() : "None");
        return out;
    }
    Zel::Ptr<Zel::GenericIf const> call(char const* n, ArgVector const& args = {}) { return a(n)->genericIfCall(sw.ptr(), args); }
    Zel::Ptr<Zel::GenericIf const> add(char const* n, char const* text) { return a(n)->genericIfAdd(sw.ptr(), {toGenericIf(String8(text))}); }
    uint64_t members(char const* n) { return a(n)->genericIfMembers(sw.ptr()); }
};

} // namespace

TEST_F(SwitchTest, InterfacesAreInstantiatedAndKeyedByNameFunctionsTakeTypedArguments) {
    auto eth1 = add("intf", "eth1");
    a("intf")->genericIfSet(sw.ptr(), ArgVector{toGenericIf(String8("eth0"))});
    EXPECT_EQ(eth1->type()->name(), String8("Demo::Interface"));
    EXPECT_EQ(get<int>(eth1.ptr(), "mtu"), 1500);
    set(eth1.ptr(), "speed", 10000000000ULL);
    EXPECT_EQ(get<unsigned long long>(eth1.ptr(), "speed"), 10000000000ULL);
    EXPECT_EQ(keys("intf"), (std::vector<std::string>{"'eth0'", "'eth1'"}));
    EXPECT_EQ(Zel::fromGenericIf<unsigned>(call("interfaceCount").ptr()), 2u);
    // Instantiating an existing key hands back the member already there.
    EXPECT_EQ(a("intf")->genericIfSet(sw.ptr(), ArgVector{toGenericIf(String8("eth1"))})->valuePtr(), eth1->valuePtr());
    // Members are children of the switch, under the collection's name.
    EXPECT_EQ(get<String8>(eth1.ptr(), "parentAttrName"), "intf");
    EXPECT_EQ(get<Zel::Name>(eth1.ptr(), "fullName").value, "/sw1/eth1");   // the tree's top names itself
    // Functions take typed arguments (the failures they throw, kind by kind:
    // test_construct_and_functions.py).
    EXPECT_EQ(Zel::fromGenericIf<int>(call("add", {toGenericIf(2), toGenericIf(40)}).ptr()), 42);
    EXPECT_THROW(call("add", {toGenericIf(2), toGenericIf(String8("x"))}), Zel::TypeException);
    EXPECT_EQ(Zel::fromGenericIf<String8>(call("describe").ptr()), "switch sw1: 2 interfaces, 0 vlans, 0 events");
}

// Events get automatic numbers, or the one the full argument form names;
// reset empties every collection but the colors, and numbering restarts.
// (Refused keys and colors: test_attr_collections.py.)
TEST_F(SwitchTest, EventsAreNumberedAndResetEmptiesAllButColors) {
    for (char const* t : {"boot", "link", "down"}) EXPECT_EQ(get<String8>(add("event", t).ptr(), "text"), t);
    EXPECT_THROW(set(add("event", "x").ptr(), "text", String8("y")), Zel::NonwritableAttrException);
    EXPECT_EQ(keys("event"), (std::vector<std::string>{"1", "2", "3", "4"}));
    EXPECT_EQ(get<String8>(a("event")->genericIfGet(sw.ptr(), toGenericIf(2u).ptr()).ptr(), "text"), "link");
    a("event")->genericIfSet(sw.ptr(), ArgVector{toGenericIf(10u), toGenericIf(String8("ten"))});
    EXPECT_EQ(get<unsigned>(add("event", "after").ptr(), "seq"), 11u);

    a("color")->genericIfSet(sw.ptr(), toGenericIf(String8("sky")).ptr(), make("Demo::Color", 2).ptr());
    EXPECT_EQ(a("color")->genericIfGet(sw.ptr(), toGenericIf(String8("sky")).ptr())->strep(), "'blue'");
    for (char const* m : {"first", "second", "third"}) a("log")->genericIfAdd(sw.ptr(), toGenericIf(String8(m)).ptr());
    EXPECT_EQ(keys("log"), (std::vector<std::string>{"None", "None", "None"}));
    EXPECT_EQ(Zel::fromGenericIf<String8>(a("log")->genericIfRemove(sw.ptr()).ptr()), "first");
    a("vlan")->genericIfSet(sw.ptr(), toGenericIf(1).ptr(), toGenericIf(String8("v")).ptr());
    EXPECT_EQ(call("reset"), nullptr);
    EXPECT_EQ(members("vlan") + members("log") + members("event"), 0u);
    EXPECT_EQ(a("log")->genericIfRemove(sw.ptr()), nullptr);
    EXPECT_EQ(members("color"), 1u);
    EXPECT_EQ(get<unsigned>(add("event", "again").ptr(), "seq"), 1u);
}

TEST_F(SwitchTest, ChangesNotifyWithTheKeyOrNullForTheQueue) {
    Zel::Ptr<Recorder> rec = Zel::zelNew<Recorder>(sw);
    a("vlan")->genericIfSet(sw.ptr(), toGenericIf(5).ptr(), toGenericIf(String8("v")).ptr());
    a("log")->genericIfAdd(sw.ptr(), toGenericIf(String8("m")).ptr());
    add("intf", "eth0");
    a("vlan")->genericIfDel(sw.ptr(), toGenericIf(5).ptr());
    call("reset");   // only the log still has a member
    EXPECT_EQ(rec->seen, (std::vector<std::string>{"vlan=5", "log=None", "intf='eth0'", "vlan=5", "log=None"}));
}
