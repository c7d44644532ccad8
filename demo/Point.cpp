#include "demo/Point.h"

#include "Zel/Attr.h"
#include "Zel/TypeOps.h"

namespace Demo {

namespace {
constexpr Zel::FieldAttr<&Point::x> kX;
constexpr Zel::FieldAttr<&Point::y> kY;
constexpr Zel::ArgDesc kCtor[] = {{"x", "int"}, {"y", "int"}, {nullptr, nullptr}};
constexpr Zel::TypeOps kOps = Zel::valueOps<Point, int, int>();
constexpr uint32_t kStored = Zel::ZelAttr::readable_ | Zel::ZelAttr::writable_ | Zel::ZelAttr::stored_;
} // namespace

constinit Zel::ZelType const Point::_zelType("Demo::Point", sizeof(Point), nullptr, Zel::ZelType::isValue_,
                                             Point::_zelAttrs, 2, kCtor, &kOps);
constinit Zel::ZelAttr const Point::_zelAttrs[] = {
    {"x", 1, &Point::_zelType, &Zel::Builtin<int>::_zelType, kStored, &kX},
    {"y", 2, &Point::_zelType, &Zel::Builtin<int>::_zelType, kStored, &kY},
};

namespace {
Zel::TypeRegistration const rPoint(&Point::_zelType);
} // namespace

} // namespace Demo
