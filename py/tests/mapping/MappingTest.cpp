// The default-attribute mapping: declarations checked and cached per type,
// its value types, and enumerator names filled per enumeration.
#include <functional>
#include <utility>

#include "Support.h"
#include "module/convert/Convert.h"
#include "module/mapping/Mapping.h"
#include "Zel/Attr.h"
#include "Zel/TypeOps.h"
#include "Zel/Values.h"

using namespace Zel;
using namespace zeltest;
using Zel::PyGenericIf::DefaultAttributeData;
using Zel::PyGenericIf::FwkPyGenericIfMapping;
using Zel::PyGenericIf::TypeAttributeIdKey;

namespace {

// Test-only value types whose default-attribute declarations are broken in
// one way each; they share one C++ struct.
struct Probe {
    int n = 0;
    String8 s;
    bool operator==(Probe const&) const = default;
};
constexpr FieldAttr<&Probe::n> kN;
constexpr FieldAttr<&Probe::s> kS;
constexpr ConstStringAttr kNameN("n"), kNameS("s"), kNameNope("nope");
constexpr ConstBoolAttr kFalse(false);
constexpr TypeOps kProbeOps = valueOps<Probe>();
Ptr<GenericIf> refuseDefault(ZelType const* t, void const* v, bool c) {
    if (!v) throw RangeException("no default value");
    return makeValue<Probe>(t, v, c);
}
constexpr TypeOps kNoDefaultOps{&refuseDefault, &constructValue<Probe>, &reflectiveHash, &reflectiveStrep,
                                &valueEqual<Probe>};
constexpr uint32_t kStored = ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::stored_;
constexpr uint32_t kConst = ZelAttr::readable_ | ZelAttr::isStatic_;

#define PROBE_TYPE(NAME, OPS, DECL1, H1, DECL2, H2)                                                        \
    extern ZelAttr const NAME##Attrs[];                                                                   \
    constinit ZelType const NAME("Test::" #NAME, sizeof(Probe), nullptr, ZelType::isValue_, NAME##Attrs, 4, \
                                 nullptr, &OPS);                                                         \
    constinit ZelAttr const NAME##Attrs[] = {                                                             \
        {"n", 1, &NAME, &Builtin<int>::_zelType, kStored, &kN},                                          \
        {"s", 2, &NAME, &Builtin<String8>::_zelType, kStored, &kS},                                      \
        {DECL1, 3, &NAME, &Builtin<String8>::_zelType, kConst, &H1},                                     \
        {DECL2, 4, &NAME, &Builtin<String8>::_zelType, kConst, &H2},                                     \
    };
PROBE_TYPE(BothDeclared, kProbeOps, "defaultAttribute", kNameN, "defaultReprAttribute", kNameS)
PROBE_TYPE(ReprNotString, kProbeOps, "defaultReprAttribute", kNameN, "unused", kNameN)
PROBE_TYPE(UnknownTarget, kProbeOps, "defaultAttribute", kNameNope, "unused", kNameN)
PROBE_TYPE(ReprUnknownTarget, kProbeOps, "defaultReprAttribute", kNameNope, "unused", kNameN)
PROBE_TYPE(NoDefaultCtor, kNoDefaultOps, "defaultAttribute", kNameN, "unused", kNameN)
PROBE_TYPE(ReprNoDefaultCtor, kNoDefaultOps, "defaultReprAttribute", kNameS, "unused", kNameN)
PROBE_TYPE(UsedNotBool, kProbeOps, "defaultAttribute", kNameN, "defaultAttributeUsedForAccessor", kNameS)
PROBE_TYPE(DeclNotString, kProbeOps, "defaultAttribute", kFalse, "unused", kNameN)
PROBE_TYPE(NonStringTarget, kProbeOps, "defaultAttribute", kNameN, "unused", kNameN)

ZelType const* T(char const* name) { return typeNode(String8(name)); }

using Mapping = PyTest;

TEST_F(Mapping, InvalidDeclarationsAreReportedAndCached) {
    struct Case { ZelType const* type; char const* message; };
    Case const cases[] = {
        {&BothDeclared, "Both 'defaultAttribute' and 'defaultReprAttribute' are defined for type "},
        {&ReprNotString, "defaultReprAttribute does not refer to a Zel::String for type "},
        {&UnknownTarget, "defaultAttribute does not refer to a known attribute for type "},
        {&ReprUnknownTarget, "defaultReprAttribute does not refer to a known attribute for type "},
        {&NoDefaultCtor, "defaultAttribute only works if the default constructor can be used for type "},
        {&ReprNoDefaultCtor, "defaultReprAttribute only works if the default constructor can be used for type "},
        {&UsedNotBool, "defaultAttributeUsedForAccessor is not a bool for type "},
    };
    FwkPyGenericIfMapping* map = FwkPyGenericIfMapping::global();
    PyRef three(py("3"));
    for (Case const& c : cases) {
        SCOPED_TRACE(c.type->name());
        DefaultAttributeData d = map->defaultAttributeData(c.type);
        EXPECT_FALSE(d.valid);
        EXPECT_EQ(d.errorMessage.str(), std::string(c.message) + c.type->name());
        EXPECT_EQ(d.defaultId, 0);
        EXPECT_EQ(d.defaultType, nullptr);
        EXPECT_TRUE(d.defaultAttributeUsedForAccessor);
        uint32_t size = map->defaultAttributeDataMap().size();
        EXPECT_EQ(map->defaultAttributeData(c.type), d);
        EXPECT_EQ(map->defaultAttributeDataMap().size(), size);
        // Conversion reports the record's message as a TypeError.
        EXPECT_FALSE(PyObjectToGenericIf(three.get(), c.type));
        ASSERT_TRUE(PyErr_ExceptionMatches(PyExc_TypeError));
        PyErr_Clear();
    }
    EXPECT_EQ(map->defaultAttributeData(&DeclNotString), DefaultAttributeData());
    DefaultAttributeData nonString = map->defaultAttributeData(&NonStringTarget);
    EXPECT_TRUE(nonString.valid);
    EXPECT_EQ(nonString.defaultType, &Builtin<int>::_zelType);
    EXPECT_EQ(nonString.defaultId, 1);
    // No cache entry for non-value types; one for a value type without rules.
    uint32_t size = map->defaultAttributeDataMap().size();
    EXPECT_EQ(map->defaultAttributeData(&Entity::_zelType), DefaultAttributeData());
    EXPECT_EQ(map->defaultAttributeDataMap().size(), size);
    EXPECT_EQ(map->defaultAttributeData(T("Demo::Point")).defaultType, nullptr);
}

TEST_F(Mapping, KeysRecordsAndEnumeratorNames) {
    ZelType const *lo = &Builtin<int>::_zelType, *hi = &Builtin<bool>::_zelType;
    if (std::less<>()(hi, lo)) std::swap(lo, hi);
    EXPECT_LT(TypeAttributeIdKey(lo, 100), TypeAttributeIdKey(hi, 1));
    EXPECT_LT(TypeAttributeIdKey(lo, 1), TypeAttributeIdKey(lo, 2));
    EXPECT_NE(TypeAttributeIdKey(lo, 1).hash(), TypeAttributeIdKey(lo, 2).hash());
    DefaultAttributeData a, b, full(4, T("Demo::MacAddr"), T("Demo::MacAddr")->attr("stringValue"), true);
    full.valid = false;
    full.errorMessage = "it's \"odd\"";
    b.errorMessage = "x";
    EXPECT_NE(a, b);
    for (DefaultAttributeData const& d : {a, full}) {
        String8 text = valueToStrep(d);
        String8::IteratorConst it = text.begin();
        EXPECT_EQ(DefaultAttributeData(it, text.end()), d) << text;
        EXPECT_EQ(it, text.end());
    }
    TypeAttributeIdKey k(T("Demo::Color"), 7);
    String8 text = valueToStrep(k), broken("Value('Zel::PyGenericIf::TypeAttributeIdKey', ** {'typeptr': None, 'id': x})");
    String8::IteratorConst it = text.begin();
    EXPECT_EQ(TypeAttributeIdKey(it, text.end()), k);
    it = broken.begin();
    EXPECT_THROW(TypeAttributeIdKey(it, broken.end()), RangeException);

    // Enumerator names: one miss fills the whole enumeration.
    FwkPyGenericIfMapping* map = FwkPyGenericIfMapping::global();
    ZelType const* color = T("Demo::Color");
    EXPECT_FALSE(map->attributeData(TypeAttributeIdKey(color, 3)));
    Ptr<PyObjHandle> blue = map->attributeData(TypeAttributeIdKey(color, 2));
    ASSERT_TRUE(blue);
    EXPECT_EQ(pyStr(blue->pyObject()), "blue");
    EXPECT_FALSE(map->attributeData(TypeAttributeIdKey(T("Demo::Meters"), 1)));
}

} // namespace
