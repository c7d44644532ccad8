// Demo::Switch's collections and functions, through reflection.
#include <gtest/gtest.h>

#include <new>

#include "Zel/Dir.h"
#include "Zel/Notifiee.h"
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
        for (auto it = a(n)->genericIfIterator(sw.ptr()); it.valid(); it.advance()) {
            auto k = it.key();
            out.push_back(k ? k->strep().str() : "None");
        }
        return out;
    }
    Zel::Ptr<Zel::GenericIf const> call(char const* n, ArgVector const& args = {}) {
        return a(n)->genericIfCall(sw.ptr(), args);
    }
};

} // namespace

TEST_F(SwitchTest, InterfacesAreInstantiatedAndKeyedByName) {
    auto eth1 = a("intf")->genericIfAdd(sw.ptr(), ArgVector{toGenericIf(String8("eth1"))});
    a("intf")->genericIfSet(sw.ptr(), ArgVector{toGenericIf(String8("eth0"))});
    EXPECT_EQ(eth1->type()->name(), String8("Demo::Interface"));
    EXPECT_EQ(keys("intf"), (std::vector<std::string>{"'eth0'", "'eth1'"}));
    EXPECT_EQ(Zel::fromGenericIf<unsigned>(call("interfaceCount").ptr()), 2u);
    // Instantiating an existing key hands back the member already there.
    auto again = a("intf")->genericIfSet(sw.ptr(), ArgVector{toGenericIf(String8("eth1"))});
    EXPECT_EQ(again->valuePtr(), eth1->valuePtr());
    // Members are children of the switch, under the collection's name.
    EXPECT_EQ(get<String8>(eth1.ptr(), "parentAttrName"), "intf");
    EXPECT_EQ(get<Zel::Name>(eth1.ptr(), "fullName").value, "/sw1/eth1");   // the tree's top names itself
    // Set with a member keys it by its own name; an index is refused.
    auto eth9 = make("Demo::Interface", String8("eth9"));
    EXPECT_THROW(a("intf")->genericIfSet(sw.ptr(), toGenericIf(String8("x")).ptr(), eth9.ptr()), Zel::TypeException);
    a("intf")->genericIfSet(sw.ptr(), nullptr, eth9.ptr());
    EXPECT_TRUE(a("intf")->genericIfExist(sw.ptr(), toGenericIf(String8("eth9")).ptr()));
    EXPECT_THROW(a("intf")->genericIfSet(sw.ptr(), nullptr, make("Demo::Point", 1, 2).ptr()), Zel::TypeException);
    a("intf")->genericIfDel(sw.ptr(), toGenericIf(String8("eth9")).ptr());
    EXPECT_EQ(a("intf")->genericIfMembers(sw.ptr()), 2u);
    EXPECT_EQ(eth9->ptrInterface() ? static_cast<Zel::Entity*>(eth9->ptrInterface())->parent() : nullptr, nullptr);
}

TEST_F(SwitchTest, EventsGetAutomaticNumbers) {
    for (char const* t : {"boot", "link", "down"}) {
        auto e = a("event")->genericIfAdd(sw.ptr(), ArgVector{toGenericIf(String8(t))});
        EXPECT_EQ(get<String8>(e.ptr(), "text"), t);
    }
    EXPECT_EQ(keys("event"), (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(get<String8>(a("event")->genericIfGet(sw.ptr(), toGenericIf(2u).ptr()).ptr(), "text"), "link");
    // The full argument form names its own number.
    a("event")->genericIfSet(sw.ptr(), ArgVector{toGenericIf(10u), toGenericIf(String8("ten"))});
    auto next = a("event")->genericIfAdd(sw.ptr(), ArgVector{toGenericIf(String8("after"))});
    EXPECT_EQ(get<unsigned>(next.ptr(), "seq"), 11u);
    EXPECT_THROW(a("event")->genericIfGet(sw.ptr(), toGenericIf(String8("1")).ptr()), Zel::TypeException);
}

TEST_F(SwitchTest, VlanOrderVersionsAndMissingKeys) {
    Zel::ZelAttr const* vlan = a("vlan");
    uint64_t v0 = vlan->genericIfVersion(sw.ptr());
    for (int k : {300, 10, 200}) vlan->genericIfSet(sw.ptr(), toGenericIf(k).ptr(), toGenericIf(String8("v")).ptr());
    EXPECT_EQ(keys("vlan"), (std::vector<std::string>{"10", "200", "300"}));
    uint64_t v1 = vlan->genericIfVersion(sw.ptr());
    EXPECT_GT(v1, v0);
    vlan->genericIfDel(sw.ptr(), toGenericIf(77).ptr());   // absent: not a change
    EXPECT_EQ(vlan->genericIfVersion(sw.ptr()), v1);
    vlan->genericIfDel(sw.ptr(), toGenericIf(10).ptr());
    EXPECT_GT(vlan->genericIfVersion(sw.ptr()), v1);
    EXPECT_THROW(vlan->genericIfGet(sw.ptr(), toGenericIf(10).ptr()), Zel::RangeException);
    EXPECT_THROW(vlan->genericIfExist(sw.ptr(), toGenericIf(String8("10")).ptr()), Zel::TypeException);
    EXPECT_THROW(vlan->genericIfSet(sw.ptr(), toGenericIf(5).ptr(), toGenericIf(5).ptr()), Zel::TypeException);
    EXPECT_THROW(vlan->genericIfAdd(sw.ptr(), toGenericIf(String8("x")).ptr()), Zel::OpNotSupportedException);
    // An iterator at a key starts there; at an absent key it is not valid.
    auto it = vlan->genericIfIteratorKey(sw.ptr(), toGenericIf(300).ptr());
    ASSERT_TRUE(it.valid());
    EXPECT_EQ(Zel::fromGenericIf<int>(it.key().ptr()), 300);
    EXPECT_FALSE(vlan->genericIfIteratorKey(sw.ptr(), toGenericIf(301).ptr()).valid());
}

TEST_F(SwitchTest, ColorsQueueAndReset) {
    a("color")->genericIfSet(sw.ptr(), toGenericIf(String8("sky")).ptr(), make("Demo::Color", 2).ptr());
    EXPECT_EQ(a("color")->genericIfGet(sw.ptr(), toGenericIf(String8("sky")).ptr())->strep(), "'blue'");
    EXPECT_THROW(a("color")->genericIfSet(sw.ptr(), toGenericIf(String8("x")).ptr(), toGenericIf(2).ptr()),
                 Zel::TypeException);

    Zel::ZelAttr const* log = a("log");
    for (char const* m : {"first", "second", "third"}) log->genericIfAdd(sw.ptr(), toGenericIf(String8(m)).ptr());
    EXPECT_EQ(keys("log"), (std::vector<std::string>{"None", "None", "None"}));
    EXPECT_EQ(Zel::fromGenericIf<String8>(log->genericIfRemove(sw.ptr()).ptr()), "first");
    EXPECT_EQ(log->genericIfMembers(sw.ptr()), 2u);
    EXPECT_THROW(log->genericIfGet(sw.ptr(), toGenericIf(0).ptr()), Zel::OpNotSupportedException);

    a("vlan")->genericIfSet(sw.ptr(), toGenericIf(1).ptr(), toGenericIf(String8("v")).ptr());
    a("event")->genericIfAdd(sw.ptr(), ArgVector{toGenericIf(String8("e"))});
    EXPECT_EQ(call("reset"), nullptr);
    EXPECT_EQ(a("vlan")->genericIfMembers(sw.ptr()) + log->genericIfMembers(sw.ptr()) +
                  a("event")->genericIfMembers(sw.ptr()),
              0u);
    EXPECT_EQ(log->genericIfRemove(sw.ptr()), nullptr);
    EXPECT_EQ(a("color")->genericIfMembers(sw.ptr()), 1u);   // reset keeps colors
    // Numbering restarts once the events are gone.
    auto e = a("event")->genericIfAdd(sw.ptr(), ArgVector{toGenericIf(String8("again"))});
    EXPECT_EQ(get<unsigned>(e.ptr(), "seq"), 1u);
}

TEST_F(SwitchTest, FunctionsTakeTypedArgumentsAndThrowEveryKind) {
    EXPECT_EQ(Zel::fromGenericIf<int>(call("add", {toGenericIf(2), toGenericIf(40)}).ptr()), 42);
    EXPECT_THROW(call("add", {toGenericIf(2)}), Zel::TypeException);
    EXPECT_THROW(call("add", {toGenericIf(2), toGenericIf(String8("x"))}), Zel::TypeException);
    EXPECT_EQ(Zel::fromGenericIf<String8>(call("describe").ptr()), "switch sw1: 0 interfaces, 0 vlans, 0 events");
    EXPECT_THROW(a("vlan")->genericIfCall(sw.ptr(), {}), Zel::OpNotSupportedException);

    auto fail = [&](char const* kind) { call("fail", {toGenericIf(String8(kind)), toGenericIf(String8("boom"))}); };
    for (char const* kind : {"Exception", "NoTypeNodeException", "TypeException", "IllegalNameException",
                             "NameInUseException", "UnknownAttrException", "ConstException",
                             "NonwritableAttrException", "NondeletableAttrException", "NoImplementationException",
                             "RpcException", "RpcConnectionException", "RangeException", "ErrnoException",
                             "MemoryException", "InternalException", "PermissionException",
                             "OpNotSupportedException"}) {
        try {
            fail(kind);
            ADD_FAILURE() << kind;
        } catch (Zel::Exception const& e) {
            EXPECT_EQ(String8(e.name()), String8("Zel::") + kind);
            if (String8(kind) == "ErrnoException") {
                EXPECT_EQ(static_cast<Zel::ErrnoException const&>(e).errnum(), 2);
                EXPECT_EQ(static_cast<Zel::ErrnoException const&>(e).context(), "boom");
            } else {
                EXPECT_EQ(e.message(), "boom");
            }
        }
    }
    EXPECT_THROW(fail("bad_alloc"), std::bad_alloc);
    EXPECT_THROW(fail("int"), int);
}

TEST_F(SwitchTest, ChangesNotifyWithTheKeyOrNullForTheQueue) {
    struct Recorder : Zel::GenericIf::NotifieeConst {
        using NotifieeConst::NotifieeConst;
        std::vector<std::string> seen;
        void onAttribute(Zel::ZelAttr const* at, Zel::Ptr<Zel::GenericIf const> const& v) override {
            seen.push_back(std::string(at->name()) + "=" + (v ? v->strep().str() : "None"));
        }
    };
    Zel::Ptr<Recorder> rec = Zel::zelNew<Recorder>(sw);
    a("vlan")->genericIfSet(sw.ptr(), toGenericIf(5).ptr(), toGenericIf(String8("v")).ptr());
    a("log")->genericIfAdd(sw.ptr(), toGenericIf(String8("m")).ptr());
    a("intf")->genericIfAdd(sw.ptr(), ArgVector{toGenericIf(String8("eth0"))});
    a("vlan")->genericIfDel(sw.ptr(), toGenericIf(5).ptr());
    call("reset");   // only the log still has a member
    EXPECT_EQ(rec->seen, (std::vector<std::string>{"vlan=5", "log=None", "intf='eth0'", "vlan=5", "log=None"}));
}

TEST(DemoDir, SwitchesLiveInTheGlobalTree) {
    Zel::Ptr<Zel::GenericIf> root = Zel::genericIfOf(Zel::globalDir().ptr());
    Zel::ArgVector args{toGenericIf(String8("lab")), toGenericIf(String8("Demo::Switch"))};
    auto sw = attr(root.ptr(), "newEntity")->genericIfCall(root.ptr(), args);
    EXPECT_EQ(get<Zel::Name>(sw.ptr(), "fullName").value, "/lab");
    EXPECT_TRUE(attr(root.ptr(), "entity")->genericIfExist(root.ptr(), toGenericIf(String8("lab")).ptr()));
    Zel::ArgVector clash{toGenericIf(String8("lab")), toGenericIf(String8("Demo::AllTypes"))};
    EXPECT_THROW(attr(root.ptr(), "newEntity")->genericIfCall(root.ptr(), clash), Zel::NameInUseException);
    attr(root.ptr(), "entity")->genericIfDel(root.ptr(), toGenericIf(String8("lab")).ptr());
}
