#include "demo/Event.h"

#include <string>

#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace Demo {

Event::Event(unsigned seq, Zel::String8 text)
    : Entity(Zel::Name(std::to_string(seq))), seq_(seq), text_(std::move(text)) {}

namespace {
constexpr Zel::AccessorAttr<&Event::seq> kSeq;
constexpr Zel::AccessorAttr<&Event::text> kText;
constexpr Zel::ArgDesc kCtor[] = {{"seq", "unsigned int"}, {"text", "Zel::String"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::entityOps<Event, unsigned, Zel::String8>();
constexpr uint32_t kFixed = Zel::ZelAttr::readable_ | Zel::ZelAttr::isImmutable_ | Zel::ZelAttr::stored_;
} // namespace

constinit Zel::ZelType const Event::_zelType("Demo::Event", sizeof(Event), &Zel::Entity::_zelType,
                                             Zel::ZelType::isEntity_ | Zel::ZelType::hasOwnPtrInterface_,
                                             Event::_zelAttrs, 2, kCtor, &kOps);
constinit Zel::ZelAttr const Event::_zelAttrs[] = {
    {"seq", 1, &Event::_zelType, &Zel::Builtin<unsigned>::_zelType, kFixed, &kSeq},
    {"text", 2, &Event::_zelType, &Zel::Builtin<Zel::String8>::_zelType, kFixed, &kText},
};

namespace {
Zel::TypeRegistration const rEvent(&Event::_zelType);
} // namespace

} // namespace Demo
