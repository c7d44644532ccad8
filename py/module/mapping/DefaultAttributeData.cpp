#include "module/mapping/DefaultAttributeData.h"

#include "Zel/Attr.h"
#include "Zel/Format.h"
#include "Zel/TypeOps.h"

namespace Zel::PyGenericIf {

DefaultAttributeData::DefaultAttributeData(String8::IteratorConst& it, String8::IteratorConst const& end) {
    defaultAttributeUsedForAccessor = true;
    valid = true;
    errorMessage = String8();
    needString(it, end, "Value('Zel::PyGenericIf::DefaultAttributeData', ** {");
    needString(it, end, "'defaultId': ");
    defaultId = deserializeAttr<AttributeId>(it, end, "defaultId");
    needString(it, end, ", 'defaultType': ");
    defaultType = deserializeAttr<ZelType const*>(it, end, "defaultType");
    needString(it, end, ", 'defaultAttr': ");
    defaultAttr = deserializeAttr<ZelAttr const*>(it, end, "defaultAttr");
    needString(it, end, ", 'usePythonRepr': ");
    usePythonRepr = deserializeAttr<bool>(it, end, "usePythonRepr");
    needString(it, end, ", 'defaultAttributeUsedForAccessor': ");
    defaultAttributeUsedForAccessor = deserializeAttr<bool>(it, end, "defaultAttributeUsedForAccessor");
    needString(it, end, ", 'valid': ");
    valid = deserializeAttr<bool>(it, end, "valid");
    needString(it, end, ", 'errorMessage': ");
    errorMessage = deserializeAttr<String8>(it, end, "errorMessage");
    needString(it, end, "})");
}

bool DefaultAttributeData::operator==(DefaultAttributeData const& o) const {
    return defaultId == o.defaultId && defaultType == o.defaultType && defaultAttr == o.defaultAttr &&
           usePythonRepr == o.usePythonRepr && defaultAttributeUsedForAccessor == o.defaultAttributeUsedForAccessor &&
           valid == o.valid && errorMessage == o.errorMessage;
}

String8 valueToStrep(DefaultAttributeData const& d) {
    return format("Value('Zel::PyGenericIf::DefaultAttributeData', ** {'defaultId': %s, 'defaultType': %s, "
                  "'defaultAttr': %s, 'usePythonRepr': %s, 'defaultAttributeUsedForAccessor': %s, 'valid': %s, "
                  "'errorMessage': %s})",
                  rawPtrToStrep(d.defaultId).c_str(), rawPtrToStrep(d.defaultType).c_str(),
                  rawPtrToStrep(d.defaultAttr).c_str(), Zel::valueToStrep(d.usePythonRepr).c_str(),
                  Zel::valueToStrep(d.defaultAttributeUsedForAccessor).c_str(), Zel::valueToStrep(d.valid).c_str(),
                  Zel::valueToStrep(d.errorMessage).c_str());
}

std::ostream& operator<<(std::ostream& os, DefaultAttributeData const& d) { return os << valueToStrep(d); }

namespace {

String8 strep(GenericIf const& g) { return valueToStrep(*static_cast<DefaultAttributeData const*>(g.valuePtr())); }

// The descriptor arguments have no reflected form, so only null ones can be
// passed by reflection.
Ptr<GenericIf> construct(ZelType const* type, ArgVector const& args, bool isConst) {
    if (args.empty()) return makeValue<DefaultAttributeData>(type, nullptr, isConst);
    if (args.size() != 4) throwConstructorCount(type, 4, args.size());
    if (args[1] || args[2]) throw TypeException("descriptor arguments of Zel::PyGenericIf::DefaultAttributeData must be null");
    DefaultAttributeData d(GenericIfTraits<AttributeId>::from(args[0].ptr()), nullptr, nullptr,
                           GenericIfTraits<bool>::from(args[3].ptr()));
    return makeValue<DefaultAttributeData>(type, &d, isConst);
}

constexpr TypeOps kOps{&makeValue<DefaultAttributeData>, &construct, &reflectiveHash, &strep,
                       &valueEqual<DefaultAttributeData>};
constexpr FieldAttr<&DefaultAttributeData::defaultId> kDefaultId;
constexpr FieldAttr<&DefaultAttributeData::usePythonRepr> kUsePythonRepr;
constexpr FieldAttr<&DefaultAttributeData::defaultAttributeUsedForAccessor> kUsedForAccessor;
constexpr FieldAttr<&DefaultAttributeData::valid> kValid;
constexpr FieldAttr<&DefaultAttributeData::errorMessage> kErrorMessage;
constexpr ArgDesc kCtor[] = {{"defaultId", "Zel::AttributeId"},
                             {"defaultType", "Zel::ZelType"},
                             {"defaultAttr", "Zel::ZelAttr"},
                             {"usePythonRepr", "bool"},
                             {nullptr, nullptr}};
constexpr uint32_t kRW = ZelAttr::readable_ | ZelAttr::writable_ | ZelAttr::stored_;

} // namespace

constinit ZelType const DefaultAttributeData::_zelType("Zel::PyGenericIf::DefaultAttributeData",
                                                       sizeof(DefaultAttributeData), nullptr, ZelType::isValue_,
                                                       DefaultAttributeData::_zelAttrs, 5, kCtor, &kOps);
constinit ZelAttr const DefaultAttributeData::_zelAttrs[] = {
    {"defaultId", 2, &DefaultAttributeData::_zelType, &Builtin<int>::_zelType, kRW, &kDefaultId},
    {"usePythonRepr", 5, &DefaultAttributeData::_zelType, &Builtin<bool>::_zelType, kRW, &kUsePythonRepr},
    {"defaultAttributeUsedForAccessor", 6, &DefaultAttributeData::_zelType, &Builtin<bool>::_zelType, kRW,
     &kUsedForAccessor},
    {"valid", 7, &DefaultAttributeData::_zelType, &Builtin<bool>::_zelType, kRW, &kValid},
    {"errorMessage", 8, &DefaultAttributeData::_zelType, &Builtin<String8>::_zelType, kRW, &kErrorMessage},
};

} // namespace Zel::PyGenericIf
